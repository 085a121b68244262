// Preloaded into the unmodified plug-in by the end-to-end tests: counts its steps outside (queries to the
// service, exchanges with the authority, child processes) and ends the plug-in or the service at one of them.
//
// STEPS_LOG     a file that gets one line per step: "exchange", "child", or "query", and for a query that was
//               sent one more, "func=" and the name of what was asked for; "reached" where the action takes
//               place
// STEPS_ACTION  "<number> <moment> plug-in|service <signal> <process of the service>"
//
// The moments of a step: "ahead", before it has reached anybody; "sent", of a query that is on its way (and
// lost when the service ends then); "answered", of a query or an exchange whose answer is there and not read
// (a query's is lost when the service ends then), or of a child that has been started.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
struct ssl_st;
int SSL_read(ssl_st* connection, void* buffer, int size);
}

namespace {

enum class Moment { kAhead, kSent, kAnswered };

struct Action {
    int number = 0;
    Moment moment = Moment::kAhead;
    bool on_service = false;
    int signal = 0;
    pid_t service = 0;
};

Action ReadAction() {
    Action action;
    char moment[16] = "";
    char victim[16] = "";
    const char* text = std::getenv("STEPS_ACTION");
    if (text == nullptr) return action;
    if (std::sscanf(text, "%d %15s %15s %d %d", &action.number, moment, victim, &action.signal,
                    &action.service) != 5)
        std::abort();
    if (std::strcmp(moment, "sent") == 0) action.moment = Moment::kSent;
    if (std::strcmp(moment, "answered") == 0) action.moment = Moment::kAnswered;
    action.on_service = std::strcmp(victim, "service") == 0;
    return action;
}

const Action action = ReadAction();
const char* const log_path = std::getenv("STEPS_LOG");
int steps = 0;
int query_socket = -1;       // of the query whose answer has not been read yet
bool awaits_answer = false;  // the exchange's

// The plug-in's children are not counted.
[[gnu::constructor]] void KeepToOneProcess() { unsetenv("LD_PRELOAD"); }

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Returns when the service is gone, so that what follows never reaches it.
void KillService() {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, action.service, 0));
    kill(action.service, action.signal);
    pollfd ended{process, POLLIN, 0};
    poll(&ended, 1, -1);
    close(process);
}

void Log(const char* text, std::size_t size) {
    const int log = open(log_path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dprintf(log, "%.*s\n", static_cast<int>(size), text);
    close(log);
}

// True when the service has been ended just now.
bool Reach(Moment moment) {
    if (steps != action.number || moment != action.moment) return false;
    Log("reached", 7);
    if (action.on_service)
        KillService();
    else
        raise(action.signal);
    return action.on_service;
}

void Count(const char* kind) {
    ++steps;
    Log(kind, std::strlen(kind));
    Reach(Moment::kAhead);
}

// The function's name alone: a query may hold keys. False where there is none.
bool LogFunction(const char* request, std::size_t size) {
    const char word[] = "func=";
    const auto* begin = static_cast<const char*>(memmem(request, size, word, sizeof(word) - 1));
    if (begin == nullptr) return false;
    const auto* end =
        static_cast<const char*>(std::memchr(begin, '&', static_cast<std::size_t>(request + size - begin)));
    Log(begin, static_cast<std::size_t>((end != nullptr ? end : request + size) - begin));
    return true;
}

bool IsService(const sockaddr* address) {
    const char suffix[] = "/zelvek.sock";
    if (address->sa_family != AF_UNIX) return false;
    const char* path = reinterpret_cast<const sockaddr_un*>(address)->sun_path;
    const auto length = strnlen(path, sizeof(sockaddr_un::sun_path));
    return length >= sizeof(suffix) - 1 &&
           std::memcmp(path + length - (sizeof(suffix) - 1), suffix, sizeof(suffix) - 1) == 0;
}

bool IsStream(int fd) {
    int type = 0;
    socklen_t size = sizeof(type);
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

}  // namespace

extern "C" {

int connect(int fd, const sockaddr* address, socklen_t size) {
    if (IsService(address)) {
        Count("query");
        query_socket = fd;
    } else if (address->sa_family == AF_INET && IsStream(fd)) {
        Count("exchange");
        awaits_answer = true;
    }
    return Next<decltype(connect)>("connect")(fd, address, size);
}

ssize_t send(int fd, const void* data, size_t size, int flags) {
    const bool is_query = fd == query_socket && LogFunction(static_cast<const char*>(data), size);
    if (is_query && action.on_service) Reach(Moment::kSent);
    const ssize_t sent = Next<decltype(send)>("send")(fd, data, size, flags);
    if (is_query && !action.on_service) Reach(Moment::kSent);
    return sent;
}

ssize_t recv(int fd, void* buffer, size_t size, int flags) {
    if (fd == query_socket) {
        query_socket = -1;
        if (Reach(Moment::kAnswered)) {
            errno = ECONNRESET;
            return -1;
        }
    }
    return Next<decltype(recv)>("recv")(fd, buffer, size, flags);
}

int SSL_read(ssl_st* connection, void* buffer, int size) {
    if (awaits_answer) {
        awaits_answer = false;
        Reach(Moment::kAnswered);
    }
    return Next<decltype(SSL_read)>("SSL_read")(connection, buffer, size);
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* argv, char* const* environment) {
    Count("child");
    const int error =
        Next<decltype(posix_spawn)>("posix_spawn")(pid, path, actions, attributes, argv, environment);
    Reach(Moment::kAnswered);
    return error;
}
}
