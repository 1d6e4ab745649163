#include "bench/fleet/RateChart.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace Ombry::Fleet {
namespace {

constexpr std::size_t Bin = 300;  // seconds
constexpr double Left = 60;
constexpr double Top = 60;
constexpr double Width = 900;
constexpr double PanelHeight = 170;
constexpr double PanelGap = 44;
// Powers of ten at the foot and the head of a panel.
constexpr double Lowest = -2;
constexpr double Highest = 5;

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return std::string(text, static_cast<std::size_t>(std::clamp<int>(length, 0, sizeof text - 1)));
}

double XOf(std::size_t second, std::size_t seconds) {
    return Left + Width * static_cast<double>(second) / static_cast<double>(seconds);
}

double YOf(double rate, double top) {
    const double power = std::clamp(rate > 0 ? std::log10(rate) : Lowest, Lowest, Highest);
    return top + PanelHeight * (Highest - power) / (Highest - Lowest);
}

std::string Text(double x, double y, const char* anchor, const std::string& text) {
    return Format("<text x=\"%.0f\" y=\"%.0f\" text-anchor=\"%s\">%s</text>\n", x, y, anchor, text.c_str());
}

/// `stretch`: seconds over which a rate is taken; the busiest such stretch of each bin is drawn.
std::string Line(const RequestLog& log, const RateChart::Series& series, double top, std::size_t stretch,
                 const char* style) {
    std::string path;
    for (std::size_t begin = 0; begin < log.Seconds(); begin += Bin) {
        const Window bin{begin, std::min(begin + Bin, log.Seconds())};
        path += Format("%s%.1f %.1f", path.empty() ? "M" : "L", XOf(begin + Bin / 2, log.Seconds()),
                       YOf(log.Busiest(series.kinds, bin, stretch), top));
    }
    return Format("<path fill=\"none\" stroke=\"%s\" %s d=\"", series.colour.c_str(), style) + path +
           "\"/>\n";
}

}  // namespace

std::string RateChart::Svg(const RequestLog& log) const {
    const double panels = static_cast<double>(series.size());
    const double height = Top + panels * (PanelHeight + PanelGap);
    std::string svg = Format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" "
        "font-size=\"12\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
        Left + Width + 20, height);
    svg += Text(Left, 20, "start", title);
    double top = Top;
    for (const Series& each : series) {
        for (const Shade& shade : shades) {
            const double left = XOf(shade.window.begin, log.Seconds());
            svg += Format("<rect x=\"%.1f\" y=\"%.0f\" width=\"%.1f\" height=\"%.0f\" fill=\"#ddd\"/>\n",
                          left, top, XOf(shade.window.end, log.Seconds()) - left, PanelHeight);
            if (top == Top) svg += Text(left, top - 4, "start", shade.name);
        }
        for (double power = Lowest; power <= Highest; ++power) {
            const double y = YOf(std::pow(10, power), top);
            svg += Format("<path stroke=\"#ccc\" stroke-width=\"0.5\" d=\"M%.0f %.1fH%.0f\"/>\n", Left, y,
                          Left + Width);
            svg += Text(Left - 6, y + 4, "end", Format("%g", std::pow(10, power)));
        }
        for (std::size_t second = 0; second <= log.Seconds(); second += std::size_t{6} * 3600)
            svg += Text(XOf(second, log.Seconds()), top + PanelHeight + 15, "middle",
                        Format("%zu h", second / 3600));
        svg += Line(log, each, top, 1, "stroke-width=\"0.6\" stroke-opacity=\"0.6\"");
        svg += Line(log, each, top, Bin, "stroke-width=\"1.6\"");
        svg += Format("<g fill=\"%s\">", each.colour.c_str()) +
               Text(Left + Width, top + 14, "end", each.name) + "</g>\n";
        top += PanelHeight + PanelGap;
    }
    return svg + "</svg>\n";
}

}  // namespace Ombry::Fleet
