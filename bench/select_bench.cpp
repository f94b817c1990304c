// What the record layer costs on top of SQLite: one doSelect and one accessor read beside the bare
// sqlite3_get_table of the same statement, on the sample board. Prints the ratios of the medians
// and ends with status 1 when one is above the bound.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <map>
#include <string>

#include "params/EntradaAV.h"
#include "params/ServiciosSalida.h"
#include "params/databases.h"
#include "queltdb/records.h"

namespace {

constexpr double kBound = 1.15;

void bare(benchmark::State& state, const char* statement) {
    while (state.KeepRunning()) {
        char** table = nullptr;
        int rows = 0;
        int columns = 0;
        sqlite3_get_table(ConfDB, statement, &table, &rows, &columns, nullptr);
        benchmark::DoNotOptimize(table);
        sqlite3_free_table(table);
    }
}

template <typename Record>
void do_select(benchmark::State& state, const char* clause) {
    while (state.KeepRunning()) {
        auto* const list = Record::doSelect(ConfDB, clause, 0LL);
        benchmark::DoNotOptimize(list);
        Record::eliminaListaResultados(list);
    }
}

void accessor_integer(benchmark::State& state) {
    while (state.KeepRunning())
        benchmark::DoNotOptimize(get_EntradaAV(EAV_BITRATE, 0));
}

void accessor_text(benchmark::State& state) {
    unsigned char buffer[15];
    while (state.KeepRunning()) {
        getstr_ServiciosSalida(SSS_NOMBRE, 0, buffer, sizeof buffer);
        benchmark::DoNotOptimize(buffer);
    }
}

constexpr char kInput[] = "EntradaAV/sqlite3_get_table";
constexpr char kService[] = "ServiciosSalida/sqlite3_get_table";

struct Comparison {
    std::string name;
    std::string bare;
};

const Comparison kComparisons[] = {
    {"EntradaAV/doSelect", kInput},
    {"EntradaAV/get_EntradaAV", kInput},
    {"ServiciosSalida/doSelect", kService},
    {"ServiciosSalida/getstr_ServiciosSalida", kService},
};

// The usual table, and the medians kept.
class Medians : public benchmark::ConsoleReporter {
  public:
    Medians() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median")
                medians_[run.run_name.function_name] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Prints the ratio of the two when both ran; false when it is above the bound.
    [[nodiscard]] bool compare(const Comparison& comparison) const {
        if (!medians_.contains(comparison.name) || !medians_.contains(comparison.bare))
            return true;
        const double ratio = medians_.at(comparison.name) / medians_.at(comparison.bare);
        std::printf("%-40s %.3f of the bare select\n", comparison.name.c_str(), ratio);
        return ratio <= kBound;
    }

  private:
    std::map<std::string, double> medians_;
};

}  // namespace

int main(int argc, char* argv[]) {
    benchmark::Initialize(&argc, argv);
    if (argc != 2 ||
        sqlite3_open_v2(argv[1], &ConfDB, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        std::fprintf(stderr, "usage: %s [--benchmark_...] config_local.sqlite\n", argv[0]);
        return 2;
    }
    benchmark::RegisterBenchmark(kInput, bare, "SELECT * FROM EntradaAV WHERE IdEntradaAV='0'");
    benchmark::RegisterBenchmark("EntradaAV/doSelect", do_select<queltdb::tEntradaAV>,
                                 "WHERE IdEntradaAV='%lld'");
    benchmark::RegisterBenchmark("EntradaAV/get_EntradaAV", accessor_integer);
    benchmark::RegisterBenchmark(kService, bare,
                                 "SELECT * FROM ServiciosSalida WHERE IdServicio='0'");
    benchmark::RegisterBenchmark("ServiciosSalida/doSelect", do_select<queltdb::tServiciosSalida>,
                                 "WHERE IdServicio='%lld'");
    benchmark::RegisterBenchmark("ServiciosSalida/getstr_ServiciosSalida", accessor_text);

    Medians reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    bool within = true;
    for (const Comparison& comparison : kComparisons)
        within = reporter.compare(comparison) && within;
    sqlite3_close(ConfDB);
    return within ? 0 : 1;
}
