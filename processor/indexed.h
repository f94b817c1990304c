// Tables whose rows are found by their index.
#pragma once

#include <cstddef>
#include <iterator>

// True when each row bears its own index in `member`.
template <typename Rows, typename Row, typename Index>
constexpr bool is_indexed_by(const Rows& rows, Index Row::*member) {
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        if (static_cast<std::size_t>(rows[i].*member) != i)
            return false;
    }
    return true;
}
