#include "exporter/front_page.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <string_view>

#include "master/text.h"

namespace exporter {

namespace {

constexpr std::string_view kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>zondar_exporter</title>
<style>
:root { color-scheme: light dark; }
body { font: 1rem/1.5 system-ui, sans-serif; margin: 1rem auto; max-width: 72rem; padding: 0 1rem; }
.wide { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; }
th, td { padding: .25rem .75rem .25rem 0; text-align: left; vertical-align: top; }
th { border-bottom: 2px solid; white-space: nowrap; }
td { border-bottom: 1px solid #8885; }
td.is { font-weight: bold; white-space: nowrap; }
form { display: flex; flex-wrap: wrap; gap: .5rem 1rem; align-items: center; }
</style>
</head>
<body>
)";

constexpr std::string_view kForm = R"(<h2>Ask a module</h2>
<form action="probe" method="get">
<label>Target <input name="target" required placeholder="host, host:port or name"></label>
<label>what <select name="collect"><option>status</option><option>configuration</option></select></label>
<label><input type="checkbox" name="debug" value="true" checked> with times, bytes and meanings</label>
<button>Ask</button>
</form>
<p>The exporter's own figures are at <a href="metrics">metrics</a>.</p>
</body>
</html>
)";

std::string escaped(std::string_view text) {
    std::string html;
    for (const char c : master::printable(text)) {
        switch (c) {
            case '&':
                html += "&amp;";
                break;
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            case '"':
                html += "&quot;";
                break;
            case '\'':
                html += "&#39;";
                break;
            default:
                html += c;
        }
    }
    return html;
}

std::string time_text(std::chrono::system_clock::time_point time) {
    return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC",
                       fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

std::string seconds_text(std::chrono::duration<double> seconds) {
    return fmt::format("{:.3f} s", seconds.count());
}

std::string failure_text(const Event& event) {
    return fmt::format("{}: {}", name_of(*event.failed), escaped(event.message));
}

std::string row(const master::Target& target, const Past* past) {
    const std::string address = address_of(target);
    const auto site = target.labels.find("site");
    std::string html = fmt::format(
        "<tr><td><a href=\"probe?target={}&amp;debug=true\">{}</a></td><td>{}</td><td>{}</td>",
        address, address, escaped(target.name),
        site == target.labels.end() ? "" : escaped(site->second));
    if (past == nullptr)
        return html + "<td class=\"is\">not asked yet</td><td></td><td></td><td></td></tr>\n";
    const Event& last = past->last;
    html += fmt::format("<td class=\"is\">{}</td><td>{}, {}</td>", last.failed ? "FAILED" : "ok",
                        time_text(last.time), seconds_text(last.took));
    html += past->failure ? fmt::format("<td>{}</td><td>{}</td>", time_text(past->failure->time),
                                        failure_text(*past->failure))
                          : "<td>none</td><td></td>";
    return html + "</tr>\n";
}

std::string files_text(const TargetList& targets) {
    std::string html;
    for (const TargetList::File& file : targets.files()) {
        html += fmt::format("<li>{}: {} targets, read {}", escaped(file.path), file.targets.size(),
                            time_text(file.read));
        if (!file.error.empty())
            html += fmt::format("; <strong>now broken</strong>: {}", escaped(file.error));
        html += "</li>\n";
    }
    return html;
}

}  // namespace

std::string front_page(const TargetList& targets, const std::map<std::string, Past>& past,
                       std::chrono::system_clock::time_point now) {
    std::string html(kHead);
    html +=
        fmt::format("<h1>zondar_exporter {}</h1>\n<p>{} modules, at {}.</p>\n<ul>\n{}</ul>\n",
                    ZONDAR_VERSION, targets.targets().size(), time_text(now), files_text(targets));
    html +=
        "<div class=\"wide\">\n<table>\n<thead><tr><th>Module</th><th>Name</th><th>Site</th>"
        "<th>Last probe</th><th>at, took</th><th>Last failure</th><th>why</th></tr></thead>\n"
        "<tbody>\n";
    for (const master::Target& target : targets.targets()) {
        const auto its = past.find(address_of(target));
        html += row(target, its == past.end() ? nullptr : &its->second);
    }
    html += "</tbody>\n</table>\n</div>\n";
    html += kForm;
    return html;
}

}  // namespace exporter
