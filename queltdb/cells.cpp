#include "queltdb/cells.h"

#include <cstddef>

namespace queltdb {

void fill(std::span<const Column> columns, std::span<const Cell> cells,
          std::span<const char* const> texts) {
    for (std::size_t k = 0; k < columns.size(); ++k)
        cells[k].value = columns[k].make(texts[k]);
}

void destroy(std::span<const Cell> cells) {
    for (const Cell& cell : cells)
        delete cell.value;
}

}  // namespace queltdb
