#include "server.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "zelvek/store/store.h"

namespace zelvek::testing {

namespace fs = std::filesystem;

namespace {

// The keeper reads words from the test program. At the end of these, whatever has ended them, the server goes
// with its folder. Texts are sorted by a language's rules there, so that what needs the order of bytes says
// so.
constexpr const char* kKeeper = R"sh(
cd "$1" || exit 1
programs=/usr/lib/postgresql/15/bin
"$programs/initdb" -D data -A trust -U zelvek -E UTF8 --locale=C.UTF-8 --locale-provider=icu --icu-locale=en-US \
  --no-sync --no-instructions >log 2>&1 || cat log >&2
server=
while read -r word; do
  case $word in
    start)
      "$programs/postgres" -D data -k "$1" -c listen_addresses= -c fsync=off -c synchronous_commit=off \
        -c full_page_writes=off -c shared_buffers=16MB -c autovacuum=off -c wal_level=minimal -c max_wal_senders=0 \
        -c max_connections=20 -c deadlock_timeout=100ms >>log 2>&1 </dev/null &
      server=$!
      until "$programs/pg_isready" -q -h "$1" || ! kill -0 "$server" 2>/dev/null; do sleep 0.05; done
      "$programs/pg_isready" -q -h "$1" || cat log >&2 ;;
    stop) kill -INT "$server"; wait "$server"; server= ;;
  esac
  echo done
done
[ -z "$server" ] || { kill -QUIT "$server"; wait "$server"; }
cd / && rm -rf "$1"
)sh";

void CloseOnExec(int descriptor) { ::fcntl(descriptor, F_SETFD, FD_CLOEXEC); }

}  // namespace

PostgresqlServer::PostgresqlServer() {
    std::string pattern = (fs::temp_directory_path() / "zelvek-pg.XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    // The server refuses to be root's.
    const passwd* user = ::geteuid() == 0 ? ::getpwnam("postgres") : nullptr;
    if (user != nullptr && ::chown(folder_.c_str(), user->pw_uid, user->pw_gid) != 0)
        throw std::runtime_error("chown");
    fs::permissions(folder_, fs::perms(0755));
    std::array<int, 2> words{};
    std::array<int, 2> answers{};
    if (::pipe2(words.data(), O_CLOEXEC) != 0 || ::pipe2(answers.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    const std::string owner = user == nullptr ? "" : std::to_string(user->pw_uid);
    const std::string group = user == nullptr ? "" : std::to_string(user->pw_gid);
    keeper_ = ::fork();
    if (keeper_ == 0) {
        ::setsid();  // what ends the test from the terminal must not end the keeper first
        ::dup2(words[0], STDIN_FILENO);
        ::dup2(answers[1], STDOUT_FILENO);
        const std::string ids = "--reuid=" + owner;
        const std::string group_ids = "--regid=" + group;
        if (!owner.empty()) {
            ::execlp("setpriv", "setpriv", ids.c_str(), group_ids.c_str(), "--clear-groups", "sh", "-c",
                     kKeeper, "keeper", folder_.c_str(), nullptr);
        }
        ::execlp("sh", "sh", "-c", kKeeper, "keeper", folder_.c_str(), nullptr);
        ::_exit(1);
    }
    ::close(words[0]);
    ::close(answers[1]);
    words_ = words[1];
    answers_ = ::fdopen(answers[0], "r");
    CloseOnExec(words_);
    Start();
}

PostgresqlServer::~PostgresqlServer() {
    ::close(words_);
    ::waitpid(keeper_, nullptr, 0);
    (void)::fclose(answers_);
    fs::remove_all(folder_);
}

PostgresqlServer& PostgresqlServer::Shared() {
    static PostgresqlServer server;
    return server;
}

void PostgresqlServer::Tell(const std::string& word) {
    const std::string line = word + "\n";
    std::array<char, 16> answer{};
    if (::write(words_, line.data(), line.size()) < 0 ||
        ::fgets(answer.data(), answer.size(), answers_) == nullptr)
        throw std::runtime_error("the database server's keeper has ended");
}

void PostgresqlServer::Start() { Tell("start"); }

void PostgresqlServer::Stop() { Tell("stop"); }

std::string PostgresqlServer::Url(const std::string& database) const {
    return "postgresql://zelvek@/" + database + "?host=" + folder_.string();
}

void PostgresqlServer::Make(const std::string& database) {
    Do("DROP DATABASE IF EXISTS " + database + " WITH (FORCE)", "postgres");
    Do("CREATE DATABASE " + database, "postgres");
}

/// What every table holds at the beginning is kept aside, for a function that puts it back.
void PostgresqlServer::MakeRenewable() {
    Make("store");
    { const Store migrated(Url()); }
    Do("CREATE SCHEMA aside; CREATE TABLE aside.number_of_columns AS SELECT count(*) AS columns FROM "
       "pg_attribute a"
       " JOIN pg_class c ON c.oid = a.attrelid WHERE c.relnamespace = 'public'::regnamespace;"
       "DO $$ DECLARE name TEXT; BEGIN FOR name IN SELECT tablename FROM pg_tables WHERE schemaname = "
       "'public' LOOP"
       " EXECUTE format('CREATE TABLE aside.%I AS TABLE public.%I', name, name); END LOOP; END $$;"
       "CREATE FUNCTION aside.renew() RETURNS void LANGUAGE plpgsql AS $$ DECLARE name TEXT; BEGIN"
       " IF (SELECT count(*) FROM pg_attribute a JOIN pg_class c ON c.oid = a.attrelid WHERE c.relnamespace ="
       " 'public'::regnamespace) <> (SELECT columns FROM aside.number_of_columns) THEN RAISE 'changed'; END "
       "IF;"
       " SET LOCAL session_replication_role = replica;"
       " FOR name IN SELECT tablename FROM pg_tables WHERE schemaname = 'public' LOOP"
       " EXECUTE format('DELETE FROM public.%I', name);"
       " EXECUTE format('INSERT INTO public.%I SELECT * FROM aside.%I', name, name); END LOOP;"
       " FOR name IN SELECT sequencename FROM pg_sequences WHERE schemaname = 'public' LOOP"
       " PERFORM setval(format('public.%I', name)::regclass, 1, false); END LOOP; END $$");
    renewable_ = true;
}

void PostgresqlServer::Renew() {
    try {
        if (renewable_) {
            Do("SELECT aside.renew()");
            return;
        }
    } catch (const std::runtime_error&) {
        // A test has changed the tables themselves.
    }
    MakeRenewable();
}

PostgresqlServer::Session PostgresqlServer::Connect(const std::string& database) const {
    Session session(::PQconnectdb(Url(database).c_str()), &::PQfinish);
    ::PQsetNoticeProcessor(
        session.get(), [](void*, const char*) {}, nullptr);
    return session;
}

std::vector<std::string> PostgresqlServer::Do(const std::string& sql, const std::string& database) const {
    const Session connection = Connect(database);
    const std::unique_ptr<PGresult, void (*)(PGresult*)> result(::PQexec(connection.get(), sql.c_str()),
                                                                &::PQclear);
    const ExecStatusType status = ::PQresultStatus(result.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
        throw std::runtime_error(::PQerrorMessage(connection.get()));
    std::vector<std::string> rows;
    for (int row = 0; row < ::PQntuples(result.get()); ++row)
        rows.emplace_back(::PQgetvalue(result.get(), row, 0));
    return rows;
}

}  // namespace zelvek::testing
