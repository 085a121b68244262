// The program: the service itself, and the commands with which people and other programs ask it.
#include "zelvek/base/command_line.h"
#include "zelvek/cli/cli.h"
#include "zelvek/doctor/doctor_command.h"
#include "zelvek/moving/commands.h"
#include "zelvek/service/serve_command.h"
#include "zelvek/setup/setup_command.h"

namespace {

/// Where the service that reads this file of options keeps everything.
int ReadPlaces(const std::string& file, zelvek::moving::Places& places) {
    zelvek::ServeOptions options;
    const int status = zelvek::ReadServeOptions(file, options);
    if (status == zelvek::kSuccess) places = {options.database, zelvek::InstallSettings(options)};
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    zelvek::CommandLine line("zelvek", "The panel's local management service and its command line");
    zelvek::Command root = line.Root();
    zelvek::AddServeCommand(root, {argv, argv + argc});
    zelvek::AddConfigCommands(root);
    zelvek::moving::AddCommands(root, ReadPlaces);
    zelvek::moving::AddStoreCommands(root);
    for (const auto& add_commands : zelvek::cli::kEveryNoun) add_commands(root);
    zelvek::AddDoctorCommand(root);
    zelvek::AddSetupCommand(root);
    zelvek::cli::AddGuideCommands(root, line);
    return line.Run(argc, argv);
}
