// Carries out panel functions on a database, one after the other, for a tool that counts the instructions of
// `counted_query`. Without a query it makes the database.
// usage: panel_queries FOLDER [QUERY ...]
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "zelvek/base/process.h"
#include "zelvek/panel/functions.h"

namespace {

struct Panel {
    explicit Panel(const std::filesystem::path& folder)
        : store(folder / "zelvek.db"),
          publisher(store, folder / "answers", nullptr),
          reloader(store, {}),
          services{store, publisher, {folder / "certs"}, reloader} {}

    zelvek::Store store;
    zelvek::Publisher publisher;
    zelvek::Reloader reloader;
    zelvek::Services services;
};

/// As the service's own user asks it.
zelvek::Query Own(const char* query) {
    return {zelvek::Parameters(query), *zelvek::FindProcess(getpid()), "", zelvek::Right::kOwn};
}

}  // namespace

// Its name is what the tool looks for.
extern "C" __attribute__((noinline)) void counted_query(zelvek::Services& services,
                                                        const zelvek::Query& query, std::string& answer) {
    answer = zelvek::AnswerQuery(services, query).text;
}

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    Panel panel(argv[1]);
    // All of them once uncounted: the first time statements are prepared, and pages read from the file.
    for (int i = 2; i < argc; ++i) {
        zelvek::AnswerQuery(panel.services, Own(argv[i]));
    }
    for (int i = 2; i < argc; ++i) {
        std::string answer;
        counted_query(panel.services, Own(argv[i]), answer);
        std::cout << answer << '\n';
        if (answer.find("<error") != std::string::npos) return 1;
    }
    return 0;
}
