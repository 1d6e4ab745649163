#pragma once

namespace Ombry::Platform {

/// What a program that handles secrets asks of the system first: files private to their owner (umask 077), no
/// core dumps, no SIGPIPE and no SIGXFSZ, so that a closed pipe or a limit on the size of files is an error
/// of a write and not the end of the process, and no file or socket in the place of a standard stream that
/// was closed, where texts for the user would go into it.
void HardenProcess() noexcept;

}  // namespace Ombry::Platform
