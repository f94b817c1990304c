#include "params/alarmasEstado.h"

#include <cstdint>

#include "params/family.h"

namespace {

using Record = queltdb::tAlarmasEstado;

constexpr std::size_t kLongest = 8;
constexpr int kChanged = 2;  // what EstadoPendienteRE holds then

OnlyRow<Record> row_of(const char* name) {
    return OnlyRow<Record>(TempDB, "WHERE nombre='%q'", name);
}

std::uint8_t binary(std::string_view text) {
    unsigned value = 0;
    for (const char character : text)
        value = value << 1U | (character != '0' ? 1U : 0U);
    return static_cast<std::uint8_t>(value);
}

// Does not depend on a locale. What is no digit counts as 0.
std::uint32_t hex_digit(char character) {
    constexpr std::string_view kDigits = "0123456789ABCDEFabcdef";
    const std::size_t index = kDigits.find(character);
    if (index == std::string_view::npos)
        return 0;
    return static_cast<std::uint32_t>(index < 16 ? index : index - 6);
}

std::uint32_t hexadecimal(std::string_view text) {
    std::uint32_t value = 0;
    for (const char character : text)
        value = value << 4U | hex_digit(character);
    return value;
}

}  // namespace

int get_alarmas_estado_valor(const char* name, e_modo mode) {
    const auto row = row_of(name);
    if (!row)
        return 0;
    const std::string text = row->valor->getString();
    if (text.size() > kLongest)
        return 0;
    switch (mode) {
        case MODO_BINARIO:
            return binary(text);
        case MODO_HEXADECIMAL:
            return static_cast<int>(hexadecimal(text));
        case MODO_DECIMAL:
            return queltdb::textoAEntero(text.c_str());
        default:
            return 0;
    }
}

int setstr_alarmas_estado_valor(const char* name, const char* text, unsigned size) {
    auto row = row_of(name);
    if (!row)
        return -1;
    row->setvalor(queltdb::tSqlite3parent(text_within(text, size).c_str()));
    row->setEstadoPendienteRE(queltdb::tSqlite3int(kChanged));
    row.write();
    return 0;
}
