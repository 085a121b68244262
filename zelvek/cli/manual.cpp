#include "zelvek/cli/manual.h"

#include <algorithm>
#include <sstream>

#include "vek/str.h"
#include "zelvek/base/version.h"

namespace zelvek::cli {

namespace {

/// A text in which nothing is one of the formatter's requests.
std::string Plain(const std::string& text) {
    std::string plain;
    for (const char c : text) {
        const bool line_begins = plain.empty() || plain.back() == '\n';
        if (line_begins && (c == '.' || c == '\'')) plain += "\\&";
        if (c == '\\') plain += "\\e";
        if (c == '-') plain += "\\-";
        if (c != '\\' && c != '-') plain += c;
    }
    return plain;
}

/// The first line, then one in each further paragraph.
std::string Lines(const std::string& text) {
    std::string rest = text;
    std::string lines = Plain(str::GetWord(rest, '\n'));
    while (!rest.empty()) lines += "\n.br\n" + Plain(str::GetWord(rest, '\n'));
    return lines;
}

std::string Bold(const std::string& text) { return "\\fB" + Plain(text) + "\\fR"; }

std::string PageHead(const std::string& page, const std::string& section, const std::string& about) {
    std::string title = page;
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    return ".TH " + title + " " + section + " \"\" \"zelvek " + Version() + "\"\n.SH NAME\n" + Plain(page) +
           " \\- " + Plain(about) + "\n";
}

std::string Values(const OptionText& option) {
    if (option.choices.empty()) return option.value;
    std::string choices;
    for (const std::string& choice : option.choices) str::inpl::Append(choices, choice, "|");
    return choices;
}

void WriteOption(std::ostream& out, const OptionText& option) {
    out << ".TP\n" << Bold(option.name);
    if (option.name.starts_with("-") && !option.value.empty()) out << " " << Plain(Values(option));
    out << "\n" << Lines(option.description);
    if (option.required && option.name.starts_with("-")) out << "; required";
    if (!option.standard.empty() && !option.value.empty()) out << " (" << Plain(option.standard) << ")";
    if (option.effect == Effect::kAtNextStart) out << "; takes effect at the next start";
    out << "\n";
}

/// A command with its options, or all commands of a group, one after the other.
void WriteCommand(std::ostream& out, const std::string& before, const CommandText& command) {
    const std::string name = before + " " + command.name;
    for (const CommandText& each : command.commands) WriteCommand(out, name, each);
    if (!command.commands.empty()) return;
    out << ".SS " << Plain(name);
    for (const OptionText& argument : command.arguments) {
        out << " " << Plain(argument.required ? argument.name : "[" + argument.name + "]");
    }
    out << "\n" << Lines(command.description) << ".\n";
    for (const OptionText& argument : command.arguments) WriteOption(out, argument);
    for (const OptionText& option : command.options) {
        if (option.name != "--help") WriteOption(out, option);
    }
}

}  // namespace

std::string CommandsPage(const CommandText& line) {
    std::ostringstream out;
    out << PageHead(line.name, "1",
                    "certificates of a hosting panel's sites: the service and its command line")
        << ".SH SYNOPSIS\n"
        << Bold(line.name) << " NOUN VERB [OPTION ...]\n"
        << ".SH DESCRIPTION\n"
        << Plain(
               "The service issues and renews the certificates of jobs, each of which is for the names of "
               "one site. "
               "The commands are for root, who acts as the service's user, for that user, and for members of "
               "the "
               "service's groups: zelvek-admin changes everything, zelvek-read sees everything, neither a "
               "key. "
               "Where one takes --json it prints one JSON text, and an error as one, too.")
        << "\n.SH COMMANDS\n";
    for (const CommandText& command : line.commands) WriteCommand(out, line.name, command);
    out << ".SH EXIT STATUS\n"
        << ".TP\n0\ndone; of job run: the certificate is installed\n"
        << ".TP\n1\nit failed; standard error says why\n"
        << ".TP\n2\nthe command line is wrong, or the file of options\n"
        << ".TP\n3\nof job run: the job waits, and a later run goes on\n"
        << ".TP\n4\nof job run: nothing to do\n"
        << ".TP\n5\nwho asks may not; standard error says which group or user it takes\n"
        << ".SH SEE ALSO\n.BR zelvek.conf (5)\n";
    return out.str();
}

std::string OptionsPage(const CommandText& line) {
    std::ostringstream out;
    out << PageHead("zelvek.conf", "5", "options of the service zelvek") << ".SH DESCRIPTION\n"
        << Plain(
               "Lines of the form option=value; the value is everything after the first \"=\", without the "
               "blanks "
               "around it. Empty lines and lines that begin with \"#\" do not count. The files conf.d/*.conf "
               "beside "
               "this one are read after it, by their names; what a later file says of an option replaces "
               "what an "
               "earlier one says. \"zelvek config check\" names mistakes with file and line. "
               "\"systemctl reload zelvek\", or SIGHUP, has the service read them again; where one cannot be "
               "used, all stay as they were. Runs under way keep what they began with.")
        << "\n.SH OPTIONS\n";
    const auto serve = std::find_if(line.commands.begin(), line.commands.end(),
                                    [](const CommandText& each) { return each.name == "serve"; });
    for (OptionText option : serve == line.commands.end() ? std::vector<OptionText>{} : serve->options) {
        if (option.name == "--help" || option.name == "--config") continue;
        option.name = option.name.substr(2) + "=" + Values(option);
        WriteOption(out, option);
    }
    out << ".SH FILES\n.TP\n/etc/zelvek/zelvek.conf\n.TP\n/etc/zelvek/conf.d/*.conf\n"
        << ".SH SEE ALSO\n.BR zelvek (1)\n";
    return out.str();
}

}  // namespace zelvek::cli
