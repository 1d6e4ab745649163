#pragma once

#include <iostream>
#include <sstream>
#include <streambuf>
#include <string>

namespace Ombry::Tests {

/// Takes what is written to the standard output and error streams for its lifetime.
class CapturedOutput {
public:
    CapturedOutput()
        : previousOut(std::cout.rdbuf(out.rdbuf())), previousError(std::cerr.rdbuf(error.rdbuf())) {}
    ~CapturedOutput() {
        std::cout.rdbuf(previousOut);  // also clears the state of the stream
        std::cerr.rdbuf(previousError);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string Out() const { return out.str(); }
    std::string Error() const { return error.str(); }

private:
    std::ostringstream out;
    std::ostringstream error;
    std::streambuf* const previousOut;
    std::streambuf* const previousError;
};

}  // namespace Ombry::Tests
