// The page of metrics beside the program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "tests/exporter/exporter.h"
#include "tests/support/files.h"
#include "tests/zondarctl/running_daemon.h"

namespace {

// "| `zondar_alarm` | gauge | `alarm` | alarm "hw"; ... |" of each metric of a page.
void add_rows(const std::string& exposition, std::set<std::string>& rows) {
    std::istringstream lines(exposition);
    std::string line;
    std::string name;
    std::string help;
    std::string type;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string mark;
        std::string kind;
        words >> mark >> kind;
        if (line.starts_with("# HELP ")) {
            words >> name;
            std::getline(words >> std::ws, help);
        } else if (line.starts_with("# TYPE ")) {
            words >> name >> type;
            std::string first;
            std::getline(lines, first);
            std::string labels;
            for (std::size_t equals = 0; (equals = first.find("=\"", equals + 1)) != first.npos;) {
                const std::size_t begin = first.find_last_of("{,", equals) + 1;
                labels +=
                    (labels.empty() ? "`" : ", `") + first.substr(begin, equals - begin) + "`";
            }
            if (type == "histogram")
                labels.clear();
            rows.insert("| `" + name + "` | " + type + " | " + labels + " | " + help + " |");
        }
    }
}

std::set<std::string> rows_of_page() {
    std::istringstream lines(read_file(std::string(ZONDAR_SOURCE_DIR) + "/docs/metrics.md"));
    std::set<std::string> rows;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("| `zondar_") || line.starts_with("| `process_"))
            rows.insert(line);
    }
    return rows;
}

TEST(Documents, ListAllMetrics) {
    const RunningDaemon daemon;
    const Exporter exporter(R"([{"targets": ["127.0.0.1"]}])");
    std::set<std::string> rows;
    add_rows(page("/probe?target=127.0.0.1"), rows);
    add_rows(page("/probe?target=127.0.0.1&collect=configuration"), rows);
    add_rows(page("/metrics"), rows);
    EXPECT_EQ(rows_of_page(), rows);
}

}  // namespace
