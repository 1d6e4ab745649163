#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace Ombry::Bench {

/// Seconds of a clock that never goes back.
double Now();

/// Seconds that this process has had a processor, the system's work for it included.
double ProcessorTime();

/// The middle value; the mean of the two middle ones if there are two.
double Median(std::vector<double> values);

/// Keeps this process, and those that it starts from now on, on one processor: the last one it may run on.
void StayOnOneProcessor();

/// A folder that lives as long as the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& Path() const { return path; }
    std::string Path(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

/// Starts a program that is found by its path, or by its name among the usual folders. The standard streams
/// go to the null device unless a descriptor is given for the output. Throws `std::runtime_error`.
pid_t Start(const std::vector<std::string>& command, int output = -1, const char* folder = nullptr);

/// The exit code, or 128 and the number of the signal that ended it.
int Wait(pid_t process);

/// Starts and waits.
int Run(const std::vector<std::string>& command, int output = -1, const char* folder = nullptr);

/// A program in the background, asked to stop at the end of the object.
class Background {
public:
    explicit Background(const std::vector<std::string>& command, int output = -1)
        : process(Start(command, output)) {}
    ~Background();
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

private:
    pid_t process;
};

/// What the main of a benchmark does: measures with as many rounds as the first argument says, or with
/// `defaultRounds`. The exit code; `name` stands before what went wrong.
int RunBenchmark(const char* name, void (*measure)(int rounds), int defaultRounds, int argc, char** argv);

/// A table of figures, each beside the one that it has to reach.
class Report {
public:
    explicit Report(const std::string& title);
    /// A figure that should be at least `target`, or any if that is 0.
    void AtLeast(const std::string& name, double figure, double target, const std::string& remark = "");
    void AtMost(const std::string& name, double figure, double target, const std::string& remark = "");
    void Plain(const std::string& name, double figure, const std::string& remark = "");

private:
    void Line(const std::string& name, double figure, const std::string& target, bool reached,
              const std::string& remark);
};

}  // namespace Ombry::Bench
