#pragma once

namespace Ombry::Platform {

/// What a program that handles secrets asks of the system first: no dump of its memory when it breaks, and no
/// box that waits for an answer; files private to their owner where a mask decides that (umask 077); a closed
/// pipe or a limit on the size of files as an error of a write and not as the end of the process (no SIGPIPE,
/// no SIGXFSZ); no file or socket in the place of a standard stream that was closed, where texts for the user
/// would go into it; standard streams that take bytes as they are, which a console shows as UTF-8; and, where
/// libraries are loaded while the program runs, those of the system alone.
void HardenProcess() noexcept;

/// Gives the arguments of `main` in UTF-8, whatever the system handed over, for as long as the process lives.
/// To be called once, before anything looks at them.
void TakeArguments(int& count, char**& values);

}  // namespace Ombry::Platform
