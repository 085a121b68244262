#pragma once

/// Whether a run that ends has anything to store. The launcher and the clients tell it what they see.
namespace vek_end {

/// A client sends a query.
void NoteQuery();

/// Some service has taken one.
void NoteService();

/// The plug-in has returned this status.
void NoteStatus(int status);

/// Whether the plug-in has failed before it asked anybody anything, for wrong arguments say: what its objects
/// send after that holds nothing that could be lost.
bool HasNothingToStore();

/// The plug-in's status where that is so, and no service has taken a query since; else 0.
int StatusUnheard();

}  // namespace vek_end
