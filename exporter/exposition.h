// Prometheus' text format, version 0.0.4.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace exporter {

inline constexpr const char* kExpositionType = "text/plain; version=0.0.4; charset=utf-8";

// Names and values; a value may have any encoding.
using Labels = std::vector<std::pair<std::string_view, std::string_view>>;

// "12", "0.25", as short as the number can be told.
std::string number_text(double number);

class Exposition {
  public:
    // Begins a metric; its samples follow. `type` is "gauge", "counter" or "histogram"; a help
    // text has no line end.
    void family(std::string_view name, std::string_view type, std::string_view help);
    void sample(const Labels& labels, double value);
    // Of a histogram: "_bucket", "_sum", "_count".
    void sample(std::string_view suffix, const Labels& labels, double value);

    // A metric with one sample.
    void gauge(std::string_view name, std::string_view help, double value);
    void counter(std::string_view name, std::string_view help, double value);

    [[nodiscard]] const std::string& text() const { return text_; }

  private:
    std::string name_;
    std::string text_;
};

}  // namespace exporter
