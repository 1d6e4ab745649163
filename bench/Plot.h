#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Ombry::Bench {

/// Lines over a logarithmic axis, as a picture.
class Plot {
public:
    /// What is along the axes. `logarithmic`: the upright one, too.
    Plot(std::string title, std::string across, std::string upright, bool logarithmic);

    /// Points by growing x; x above 0, and y too on a logarithmic axis.
    void Line(const std::string& name, std::vector<std::pair<double, double>> points);

    /// An SVG file; throws `std::runtime_error`.
    void Write(const std::string& path) const;

private:
    struct Series {
        std::string name;
        std::vector<std::pair<double, double>> points;
    };

    const std::string title, across, upright;
    const bool logarithmic;
    std::vector<Series> lines;
};

}  // namespace Ombry::Bench
