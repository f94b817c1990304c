#include "queltdb/values.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace queltdb {

namespace {

// The texts of an int and a long have this room, terminator included: every value that the tables
// hold fits, and a longer one is cut.
constexpr std::size_t kIntSize = 10;
constexpr std::size_t kLongSize = 20;

std::unique_ptr<char[]> copy_of(const char* text) {
    if (text == nullptr)
        return nullptr;
    const std::size_t size = std::strlen(text) + 1;
    auto copy = std::make_unique<char[]>(size);
    std::memcpy(copy.get(), text, size);
    return copy;
}

std::unique_ptr<char[]> decimal(long value, std::size_t size) {
    auto text = std::make_unique<char[]>(size);  // is filled with zeros
    std::to_string(value).copy(text.get(), size - 1);
    return text;
}

}  // namespace

tSqlite3parent::tSqlite3parent(const char* text) : text_(copy_of(text)) {}

tSqlite3parent::tSqlite3parent(const tSqlite3parent& other) : text_(copy_of(other.texto())) {}

tSqlite3parent& tSqlite3parent::operator=(tSqlite3parent other) noexcept {
    text_.swap(other.text_);
    return *this;
}

std::string tSqlite3parent::getString() const {
    return text_ ? text_.get() : "";
}

tSqlite3int::tSqlite3int(int value) : tSqlite3parent(decimal(value, kIntSize)) {}

tSqlite3int::tSqlite3int(long value) : tSqlite3parent(decimal(value, kLongSize)) {}

int textoAEntero(const char* texto) {
    return texto == nullptr ? 0 : std::atoi(texto);
}

}  // namespace queltdb
