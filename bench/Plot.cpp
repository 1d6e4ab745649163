#include "bench/Plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

constexpr double Left = 80, Top = 50, Width = 560, Height = 300;
constexpr std::array<const char*, 4> Colours{"#1b6ca8", "#c0392b", "#2e8b57", "#7d5ba6"};

/// "37.5", "4000", "16k", "1M".
std::string Short(double value) {
    char text[32];
    const double scale = value >= 1e6 ? 1e6 : (value >= 1e4 ? 1e3 : 1);
    const bool whole = scale == 1 && value >= 100;
    std::snprintf(text, sizeof text, whole ? "%.0f%s" : "%.3g%s", value / scale,
                  scale == 1e6 ? "M" : (scale == 1e3 ? "k" : ""));
    return text;
}

void Label(std::ostream& to, double x, double y, const std::string& text, const char* anchor,
           const char* more = "") {
    to << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\" " << more << ">" << text
       << "</text>\n";
}

}  // namespace

Plot::Plot(std::string title, std::string across, std::string upright, bool logarithmic)
    : title(std::move(title)),
      across(std::move(across)),
      upright(std::move(upright)),
      logarithmic(logarithmic) {}

void Plot::Line(const std::string& name, std::vector<std::pair<double, double>> points) {
    lines.push_back({name, std::move(points)});
}

void Plot::Write(const std::string& path) const {
    if (lines.empty()) throw std::runtime_error("There is nothing to draw in " + path);
    double highest = 0, lowest = 1e300;
    for (const Series& line : lines) {
        for (const auto& [x, y] : line.points) {
            highest = std::max(highest, y);
            lowest = std::min(lowest, y);
        }
    }
    const auto& marks = lines.front().points;  // every line has these x
    const double first = std::log(marks.front().first), last = std::log(marks.back().first);
    const auto x = [&](double value) { return Left + Width * (std::log(value) - first) / (last - first); };
    const double bottom = logarithmic ? std::log10(lowest) : 0,
                 top = logarithmic ? std::log10(highest) : highest;
    const auto y = [&](double value) {
        const double at = logarithmic ? std::log10(value) : value;
        return Top + Height * (1 - (at - bottom) / (top - bottom));
    };

    std::ostringstream svg;
    svg.precision(6);
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 720 410\" font-family=\"sans-serif\""
           " font-size=\"12\">\n<rect width=\"720\" height=\"410\" fill=\"white\"/>\n";
    Label(svg, Left, 25, title, "start", "font-size=\"15\"");
    Label(svg, Left + Width / 2, Top + Height + 45, across, "middle");
    Label(svg, Left - 65, Top - 8, upright, "start");
    for (const auto& [mark, unused] : marks) {
        svg << "<line x1=\"" << x(mark) << "\" y1=\"" << Top << "\" x2=\"" << x(mark) << "\" y2=\""
            << Top + Height << "\" stroke=\"#ddd\"/>\n";
        Label(svg, x(mark), Top + Height + 18, Short(mark), "middle");
    }
    for (int step = 0; step <= 4; ++step) {
        const double at = bottom + (top - bottom) * step / 4, height = Top + Height * (1 - step / 4.0);
        svg << "<line x1=\"" << Left << "\" y1=\"" << height << "\" x2=\"" << Left + Width << "\" y2=\""
            << height << "\" stroke=\"#ddd\"/>\n";
        Label(svg, Left - 8, height + 4, Short(logarithmic ? std::pow(10, at) : at), "end");
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const char* const colour = Colours[i % Colours.size()];
        svg << "<polyline fill=\"none\" stroke-width=\"2\" stroke=\"" << colour << "\" points=\"";
        for (const auto& [px, py] : lines[i].points)
            svg << x(px) << "," << y(py) << " ";
        svg << "\"/>\n<text x=\"" << Left + 15 << "\" y=\"" << Top + 20 + 17 * static_cast<double>(i)
            << "\" fill=\"" << colour << "\">" << lines[i].name << "</text>\n";
    }
    svg << "</svg>\n";
    std::ofstream file(path);
    if (!(file << svg.str()).flush()) throw std::runtime_error("Cannot write " + path);
}

}  // namespace Ombry::Bench
