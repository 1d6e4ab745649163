#pragma once

namespace Ombry::Platform {

/// What a program that handles secrets asks of the system first: files private to their owner, no dumps of
/// its memory, no signal or dialogue that would end it or hold it up where a closed pipe or a full disk is an
/// error of a write, no file or socket in the place of a standard stream that was closed, where texts for the
/// user would go into it, no library but the system's own while it runs, and standard streams that pass bytes
/// on as they are and that a console shows as UTF-8.
void HardenProcess() noexcept;

/// Gives the arguments of `main` in UTF-8, whatever the system handed over, for as long as the process lives.
/// To be called once, before anything looks at them.
void TakeArguments(int& count, char**& values);

}  // namespace Ombry::Platform
