#include "zelvek/postgresql/client.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace zelvek::postgresql {

namespace {

constexpr int kOldestServer = 150000;
constexpr int kMajor = 10000;  // of a server's version number

/// On one line, without the words that say where the line came from.
std::string Line(const char* message) {
    std::string line = message == nullptr ? "" : message;
    while (!line.empty() && line.back() == '\n') line.pop_back();
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

bool IsOneOf(std::string_view state, std::initializer_list<std::string_view> beginnings) {
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&](std::string_view beginning) { return state.starts_with(beginning); });
}

/// What the server says for people, without its details, which quote the row. A sentence about a value that
/// cannot be read quotes that.
std::string Sentence(const PGresult* result, std::string_view state) {
    if (state.starts_with("22")) return "the database refuses a value (" + std::string(state) + ")";
    return Line(::PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY));
}

// The codes are those of the manual's appendix A.
[[noreturn]] void Throw(const PGresult* result, bool up) {
    const std::string_view state = OrEmpty(::PQresultErrorField(result, PG_DIAG_SQLSTATE));
    if (!up || IsOneOf(state, {"57P01", "57P02", "57P03", "08"}))
        throw Lost(Code::kLater, "the connection to the database is lost");
    if (IsOneOf(state, {"55P03"})) throw Error(Code::kLater, "the database is locked by another program");
    if (IsOneOf(state, {"40001", "40P01"}))
        throw Error(Code::kLater, "another program changes the same in the database");
    const std::string sentence = Sentence(result, state);
    if (IsOneOf(state, {"53", "58030", "25006", "57014"}))
        throw Error(Code::kLater, "the database cannot be written: " + sentence);
    if (IsOneOf(state, {"54000"}))
        throw Error(Code::kValue, "a text is too long for the database to find it again");
    throw Error(Code::kInternal, sentence);
}

std::vector<const char*> Pointers(const Values& values) {
    std::vector<const char*> pointers;
    for (const auto& value : values) pointers.push_back(value ? value->c_str() : nullptr);
    return pointers;
}

int Count(const Values& values) { return static_cast<int>(values.size()); }

}  // namespace

std::string Result::Text(int row, int column) const {
    return {::PQgetvalue(held.get(), row, column),
            static_cast<std::size_t>(::PQgetlength(held.get(), row, column))};
}

long long Result::Changed() const {
    const std::string_view text = ::PQcmdTuples(held.get());
    long long number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

Client::Client(const std::string& url) {
    // What stands before the URL holds where it says nothing else. A server that vanishes is noticed within
    // half a minute.
    const std::array keys{"connect_timeout",           "tcp_user_timeout",
                          "keepalives_idle",           "keepalives_interval",
                          "fallback_application_name", "dbname",
                          "client_encoding",           static_cast<const char*>(nullptr)};
    const std::array values{"5",      "30000",     "10",   "5",
                            "zelvek", url.c_str(), "UTF8", static_cast<const char*>(nullptr)};
    connection_.reset(::PQconnectdbParams(keys.data(), values.data(), 1));
    if (!IsUp())
        throw Lost(Code::kLater, "it cannot be reached: " + Line(::PQerrorMessage(connection_.get())));
    ::PQsetNoticeProcessor(
        connection_.get(), [](void*, const char*) {}, nullptr);
    CheckServer();
}

void Client::CheckServer() const {
    const int version = ::PQserverVersion(connection_.get());
    if (version < kOldestServer) {
        throw Error(Code::kIo, "its server is PostgreSQL " + std::to_string(version / kMajor) +
                                   ", too old: 15 is the oldest that is used");
    }
    const std::string encoding = OrEmpty(::PQparameterStatus(connection_.get(), "server_encoding"));
    if (encoding != "UTF8") throw Error(Code::kIo, "its encoding is " + encoding + ", not UTF8");
}

std::string Client::ServerVersion() const {
    const std::string version = OrEmpty(::PQparameterStatus(connection_.get(), "server_version"));
    return version.substr(0, version.find(' '));
}

Result Client::Checked(PGresult* result) const {
    Result owned{std::unique_ptr<PGresult, Result::Clear>(result)};
    const ExecStatusType status = ::PQresultStatus(result);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) Throw(result, IsUp());
    return owned;
}

Result Client::Do(const std::string& sql, const Values& values) {
    if (values.empty()) return Checked(::PQexec(connection_.get(), sql.c_str()));
    return Checked(::PQexecParams(connection_.get(), sql.c_str(), Count(values), nullptr,
                                  Pointers(values).data(), nullptr, nullptr, 0));
}

void Client::Prepare(const std::string& name, const std::string& sql) {
    Checked(::PQprepare(connection_.get(), name.c_str(), sql.c_str(), 0, nullptr));
}

Result Client::DoPrepared(const std::string& name, const Values& values) {
    return Checked(::PQexecPrepared(connection_.get(), name.c_str(), Count(values), Pointers(values).data(),
                                    nullptr, nullptr, 0));
}

std::string Client::Ask(const std::string& sql, const Values& values) {
    const Result result = Do(sql, values);
    return result.Rows() > 0 ? result.Text(0, 0) : "";
}

void CheckUrl(const std::string& url) {
    char* reason = nullptr;
    const std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption*)> options(
        ::PQconninfoParse(url.c_str(), &reason), &::PQconninfoFree);
    if (!options) {
        const std::unique_ptr<char, void (*)(void*)> owned(reason, &::PQfreemem);
        throw Error(Code::kValue, "the URL of the database cannot be used: " + Line(reason));
    }
    for (const PQconninfoOption* option = options.get(); option->keyword != nullptr; ++option) {
        const std::string_view key = option->keyword;
        if (option->val != nullptr && (key == "password" || key == "sslpassword"))
            throw Error(Code::kValue, "the URL of a database holds no password: see passfile");
    }
}

}  // namespace zelvek::postgresql
