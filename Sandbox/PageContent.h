#pragma once

namespace Ombry::Sandbox {

/// The files of the folder Page/, as they were when this was built.
extern const char* const PageHtml;
extern const char* const PageStyle;
extern const char* const PageScript;

}  // namespace Ombry::Sandbox
