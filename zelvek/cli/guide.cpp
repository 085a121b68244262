// The commands that tell of all others.
#include <iostream>
#include <memory>

#include "zelvek/base/text.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/completion.h"
#include "zelvek/cli/manual.h"

namespace zelvek::cli {

namespace {

int PrintCandidates(const CommandText& line, const std::vector<std::string>& words) {
    for (const Candidate& each : Complete(line, words, &NamesOfService)) {
        std::cout << WithoutControls(each.word, ' ');
        if (!each.meaning.empty()) std::cout << "\t" << WithoutControls(each.meaning, ' ');
        std::cout << "\n";
    }
    return kSuccess;
}

}  // namespace

void AddGuideCommands(Command& root, const CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    Command complete = root.AddCommand("complete", "Prints what may stand next on a command line, for shells",
                                       [words, &line] { return PrintCandidates(line.Describe(), *words); });
    complete.AddRest("WORD", *words, "The words after \"zelvek\", the last one unfinished; after \"--\"");

    const auto page = std::make_shared<std::string>();
    Command manual = root.AddCommand("manual", "Prints a manual page, for man -l -", [page, &line] {
        const CommandText text = line.Describe();
        std::cout << (*page == "zelvek.1" ? CommandsPage(text) : OptionsPage(text));
        return kSuccess;
    });
    manual.AddOption("PAGE", *page, "Of the commands, or of the service's options")
        .Required()
        .OneOf({"zelvek.1", "zelvek.conf.5"});
}

}  // namespace zelvek::cli
