#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// The link-time double: the framework's symbols that reach outside the process, answered by a script. A test
/// makes one World, says what will be answered, runs the code and looks at what was asked, and so also at
/// what was not.
namespace vek_double {

/// One thing that the code under test asked for. Kinds and their texts:
///   panel         the query text; detail: "service/module"        http     "GET url" or "POST url"
///   header        one request header line                         body     what a POST carried
///   connect to    the address for exchanges         http limit    "seconds bytes"
///   child         the command line; detail: its mode in decimal   input    what the child was fed
///   limit, sleep  milliseconds                                    open log "name level"
///   log           "level text"; detail: "component/module"        random   how many bytes
///   generate key  bits; detail: the new key's name                sign     the data; detail: the key's name
struct Call {
    std::string kind;
    std::string text;
    std::string detail;

    std::string Line() const { return kind + ": " + text; }
};

struct HttpAnswer {
    int status = 200;
    std::string head;  // header lines after the status line, each with its CR LF
    std::string body;
    std::string raw;  // stands for status line, head and body when not empty
};

struct ChildAnswer {
    std::string output;
    int status = 0;
};

/// How an injected failure looks: the framework's error, or the end of the run that a signal asks for. The
/// latter makes the wait (exchange, child, sleep) it falls on and every later one throw
/// vek_proc::Interrupted; panel queries go on.
enum class Failure { kError, kInterrupted };

/// The header lines of a map-like list, for HttpAnswer::head.
std::string Head(std::initializer_list<std::pair<std::string, std::string>> lines);

/// The PEM text of a key of that name, as the doubles of vek_crypto read and write it. Generated keys are
/// named "1", "2", ...
std::string FakePem(const std::string& name, unsigned long bits = 4096);

/// What the double of sign::Calculate gives for the key of that PEM text: as many bytes as its modulus has,
/// different for each key and each data.
std::string FakeSignature(const std::string& pem, const std::string& data);

/// The outside of one test; one at a time. Its end fails the test for scripted answers that nobody asked for.
///
/// A pattern is the exact text of a call, or the beginning of one followed by "*". Scripted answers are taken
/// in their order, one queue for each kind; a standing answer takes every call of its pattern ahead of the
/// queue, the one told last first. A call without an answer, or not the one the queue expects, fails the test
/// with the call's text and then gets something harmless: an empty answer of the panel and of a child, a
/// vek_err::Error of an exchange.
///
/// While no World exists (the global record's end at process exit) every call is answered so in silence.
class World {
public:
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    void AnswerPanel(const std::string& pattern, const std::string& xml);
    void FailPanel(const std::string& pattern, const std::string& type, const std::string& message);
    void AnswerHttp(const std::string& pattern, const HttpAnswer& answer);
    void FailHttp(const std::string& pattern, const std::string& what);
    void AnswerChild(const std::string& pattern, const ChildAnswer& answer);

    /// Standing answers. The function gets the query text, the body of a POST, the child's input; it may
    /// throw.
    void AlwaysPanel(const std::string& pattern, std::function<std::string(const std::string& query)> answer);
    void AlwaysHttp(const std::string& pattern, std::function<HttpAnswer(const std::string& body)> answer);
    void AlwaysChild(const std::string& pattern, std::function<ChildAnswer(const std::string& input)> answer);

    /// Everything asked so far, in order; `Lines` gives the calls of some kinds (of all without an argument)
    /// as "kind: text".
    const std::vector<Call>& calls() const;
    std::vector<std::string> Lines(std::initializer_list<std::string_view> kinds = {}) const;
    void ForgetCalls();

    /// The clock stands still but for `Sleep`, which moves it at once. It starts at 2030-06-01 12:00:00.
    void SetNow(const std::string& date_time);

    /// Lets the n-th outside step (panel query, exchange, child) fail, counted from 1 and from the beginning
    /// of the world; `FailAt` counts the calls of one kind. A failing call takes no answer, and the rest of
    /// the script may stay unasked.
    void FailAtStep(int n, Failure failure);
    void FailAt(const std::string& kind, int n, Failure failure);
    void ForgetFailures();  // those that have not come yet
    int steps() const;
    void AllowUnaskedAnswers();

    /// How many times a key was decoded so far, and how many keys there are at the moment.
    int decodings() const;
    int keys_held() const;

    /// Lines above this level are not written, whatever vek_log::Init says; 9 at first. The log counts as
    /// open from the start, so that the parts of a program can be tested without its entry point, unless it
    /// is closed.
    void SetLogLevel(int level);
    void CloseLog();

    struct State;
    State& state() { return *state_; }

private:
    std::unique_ptr<State> state_;
};

}  // namespace vek_double
