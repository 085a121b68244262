#include <algorithm>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "zelvek/store/soci_state.h"

namespace zelvek {

namespace {

class SqliteStatement : public StatementUse {
public:
    SqliteStatement(SqliteConnection::State& connection, const std::string& sql)
        : connection_(connection), text_(sql), statement_(Take()) {}

    // What has failed is not kept: the engine may have left it half-way.
    ~SqliteStatement() override {
        if (failed_) return;
        try {
            PutBack();
        } catch (const std::exception&) {
            failed_ = true;
        }
    }

    void Give(const std::string& text) override { statement_.exchange(soci::use(texts_.emplace_back(text))); }

    void Give(long long number) override { statement_.exchange(soci::use(numbers_.emplace_back(number))); }

    void GiveNothing() override {
        soci::indicator& nothing = indicators_.emplace_back(soci::i_null);
        statement_.exchange(soci::use(texts_.emplace_back(), nothing));
    }

    void Receive(Column column) override {
        std::visit([this](auto* variable) { HandOver(variable); }, column);
    }

    bool Next() override {
        failed_ = true;
        const bool row = Translated([&] { return Step(); });
        failed_ = false;
        // One that changes rows and has columns gives the changed ones.
        if (row && !text_.starts_with("SELECT")) connection_.changed = true;
        return row;
    }

    long long Run() override {
        failed_ = true;
        const long long changed = Translated([&] {
            statement_.define_and_bind();
            statement_.execute(true);
            return statement_.get_affected_rows();
        });
        failed_ = false;
        if (changed > 0) connection_.changed = true;
        return changed;
    }

private:
    /// The kept statement of this text, or a new one.
    soci::statement Take() {
        const auto kept = connection_.kept.find(text_);
        if (kept == connection_.kept.end()) {
            soci::statement fresh(connection_.session);
            fresh.alloc();
            fresh.prepare(text_, soci::details::st_repeatable_query);
            return fresh;
        }
        soci::statement taken = kept->second;
        connection_.kept.erase(kept);
        return taken;
    }

    /// To the end, so that the engine does not take it for a reader that is still under way.
    void PutBack() {
        while (more_) more_ = statement_.fetch();
        statement_.bind_clean_up();
        connection_.kept.insert_or_assign(text_, statement_);
    }

    bool Step() {
        if (!begun_) {
            statement_.define_and_bind();
            statement_.execute(false);
            begun_ = true;
        }
        more_ = statement_.fetch();
        if (more_)
            std::for_each(columns_.begin(), columns_.end(), [](const auto& hand_over) { hand_over(); });
        return more_;
    }

    void HandOver(std::optional<std::string>* variable) {
        std::string& place = texts_.emplace_back();
        soci::indicator& given = indicators_.emplace_back(soci::i_ok);
        statement_.exchange(soci::into(place, given));
        columns_.emplace_back([&place, &given, variable] {
            *variable = given == soci::i_null ? std::nullopt : std::optional(place);
        });
    }
    void HandOver(std::string* variable) { HandOver(texts_, *variable); }
    template <class Number>
    void HandOver(Number* variable) {
        HandOver(numbers_, *variable);
    }

    /// The library writes into a place of this object, also when `PutBack` reads on; the caller's variable
    /// gets the rows that the caller asks for.
    template <class Value, class Variable>
    void HandOver(std::deque<Value>& places, Variable& variable) {
        Value& place = places.emplace_back();
        statement_.exchange(soci::into(place));
        columns_.emplace_back([&place, &variable] { variable = static_cast<Variable>(std::move(place)); });
    }

    SqliteConnection::State& connection_;
    std::string text_;
    soci::statement statement_;
    bool begun_ = false;
    bool more_ = false;
    bool failed_ = false;
    // They stay where they are while the library refers to them.
    std::deque<std::string> texts_;
    std::deque<long long> numbers_;
    std::deque<soci::indicator> indicators_;
    std::vector<std::function<void()>> columns_;
};

}  // namespace

std::unique_ptr<StatementUse> UseOf(SqliteConnection::State& connection, const std::string& sql) {
    return std::make_unique<SqliteStatement>(connection, sql);
}

}  // namespace zelvek
