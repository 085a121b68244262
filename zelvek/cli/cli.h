#pragma once

#include <array>

#include "zelvek/base/command_line.h"

/// The commands with which people and programs ask the service. Each noun has a source file with its
/// commands: their options beside what they do.
namespace zelvek::cli {

void AddDomainCommands(Command& root);
void AddJobCommands(Command& root);
void AddProblemCommands(Command& root);
void AddAccountCommands(Command& root);
void AddAuthorityCommands(Command& root);
void AddCertificateCommands(Command& root);
void AddImportCommands(Command& root);
void AddStatusCommand(Command& root);
void AddPageCommands(Command& root);

/// Adds commands that tell of all others: `complete`, for shells, and `manual`.
void AddGuideCommands(Command& root, const CommandLine& line);

/// All of them, in the order in which the help shows them.
inline constexpr std::array kEveryNoun{&AddStatusCommand,       &AddDomainCommands,  &AddJobCommands,
                                       &AddCertificateCommands, &AddProblemCommands, &AddAccountCommands,
                                       &AddAuthorityCommands,   &AddImportCommands,  &AddPageCommands};

}  // namespace zelvek::cli
