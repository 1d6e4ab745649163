#pragma once

#include "bench/fleet/RequestLog.h"

#include <string>
#include <vector>

namespace Ombry::Fleet {

/// Requests a second over the time as a picture (SVG), on a scale that counts in powers of ten: for each
/// series the mean of each bin as a line, and its busiest second as a thin one above.
class RateChart {
public:
    struct Series {
        std::string name;
        std::string colour;
        std::vector<Request> kinds;
    };
    struct Shade {
        std::string name;
        Window window;
    };

    RateChart(std::string title, std::vector<Series> series, std::vector<Shade> shades)
        : title(std::move(title)), series(std::move(series)), shades(std::move(shades)) {}

    std::string Svg(const RequestLog& log) const;

private:
    const std::string title;
    const std::vector<Series> series;
    const std::vector<Shade> shades;
};

}  // namespace Ombry::Fleet
