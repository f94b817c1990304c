#include "master/names.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>
#include <utility>

namespace master {

namespace {

constexpr std::size_t kMostOffered = 4;

std::string lower(std::string_view text) {
    std::string letters(text);
    std::ranges::transform(letters, letters.begin(),
                           [](unsigned char letter) { return std::tolower(letter); });
    return letters;
}

bool fits_pattern(std::string_view name, std::string_view pattern) {
    std::size_t at = 0;
    std::size_t star = std::string_view::npos;
    std::size_t behind = 0;  // the first letter that the last star does not stand for
    for (std::size_t i = 0; i < name.size();) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            behind = i;
        } else if (at < pattern.size() && pattern[at] == name[i]) {
            ++at;
            ++i;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            i = ++behind;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

bool leads(std::string_view name, std::string_view parts) {
    return name.starts_with(parts) && name.size() > parts.size() && name[parts.size()] == '.';
}

// Words within the name of a column count, too: Bitrate in Audio_Bitrate.
bool ends(std::string_view name, std::string_view word) {
    if (word.empty() || !name.ends_with(word) || name.size() == word.size())
        return false;
    const char before = name[name.size() - word.size() - 1];
    return before == '.' || before == '_';
}

std::vector<const Parameter*> found_by(bool (*fits)(std::string_view name, std::string_view word),
                                       std::string_view word) {
    std::vector<const Parameter*> found;
    for (const Parameter& parameter : parameters()) {
        if (fits(lower(parameter.name), word))
            found.push_back(&parameter);
    }
    return found;
}

// How many letters are left out, put in, exchanged, or swapped with the next one.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> before_last;
    std::vector<std::size_t> last;
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (std::size_t i = 1; i <= one.size(); ++i) {
        before_last = std::exchange(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t differs = one[i - 1] == other[j - 1] ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + differs});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
    }
    return row.back();
}

// A third of the letters may be wrong, three at most.
bool is_near(std::size_t distance, std::string_view word) {
    return distance < word.size() && distance <= std::clamp<std::size_t>(word.size() / 3, 1, 3);
}

std::string_view column_of(std::string_view name) {
    return name.substr(name.rfind('.') + 1);
}

// How far away a word is; the first number counts before the second.
using Score = std::pair<std::size_t, std::size_t>;

std::vector<std::string> best_of(std::vector<std::pair<Score, std::string>> near) {
    std::ranges::stable_sort(near, {}, &std::pair<Score, std::string>::first);
    std::vector<std::string> words;
    for (const auto& each : near) {
        if (words.size() < kMostOffered)
            words.push_back(each.second);
    }
    return words;
}

}  // namespace

std::vector<const Parameter*> find_parameters(std::string_view pattern) {
    std::vector<const Parameter*> found = matching(pattern);
    for (const auto fits : {leads, ends}) {
        if (found.empty())
            found = found_by(fits, lower(pattern));
    }
    return found;
}

std::vector<const Parameter*> matching(std::string_view pattern) {
    return found_by(fits_pattern, lower(pattern));
}

std::vector<std::string> nearest(std::string_view word, std::span<const std::string> of) {
    std::vector<std::pair<Score, std::string>> near;
    for (const std::string& each : of) {
        const std::size_t off = distance(lower(word), lower(each));
        if (is_near(off, word))
            near.push_back({{off, 0}, each});
    }
    return best_of(std::move(near));
}

std::vector<std::string> nearest_parameters(std::string_view name) {
    const std::string word = lower(name);
    const std::string_view column = column_of(word);
    std::vector<std::pair<Score, std::string>> near;
    for (const Parameter& parameter : parameters()) {
        const std::string known = lower(parameter.name);
        const std::size_t whole = distance(word, known);
        const std::size_t last = distance(column, column_of(known));
        if (is_near(whole, word) || is_near(last, column))
            near.push_back({{std::min(whole, last), whole}, parameter.name});
    }
    return best_of(std::move(near));
}

}  // namespace master
