// Shell quoting: any argument is one word of the command line, and the words around it stay theirs.
#include "support/plain.h"
#include "support/target.h"
#include "vek/proc.h"

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string a = TakeText(input);
    const std::string b = TakeRest(input);
    const std::string command = "tool " + vek_proc::Escape(a) + " -x" + vek_proc::Escape(b) + " end";
    const std::vector<std::string> expected{"tool", a.substr(0, a.find('\0')),
                                            "-x" + b.substr(0, b.find('\0')), "end"};
    Hold(plain::ShellWords(command) == expected, "an argument is one word, up to its first NUL byte");
    Hold(command.find('\0') == std::string::npos, "no NUL byte ends the command line early");
}
