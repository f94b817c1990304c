#include "params/ConfiguracionGen.h"

#include "params/family.h"

namespace {

using Record = queltdb::tConfiguracionGen;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {CG_MODO_ENTRADA, Modo_Entrada},
    {CG_MODO_SALIDA, Modo_Salida},
    {CG_ATENUACION, Atenuacion},
    {CG_PLAYER_MODE, Player_Mode},
    {CG_IP_DHCP, Ip_Dhcp},
    {CG_LCD_BLOQUEO, Lcd_Bloqueo},
    {CG_SUBTIMEZONE, Subtimezone},
};
static_assert(complete(kIntegers, CG_SUBTIMEZONE) && writable(kIntegers));

constexpr TextColumn<Record> kTexts[] = {
    {CGS_IP_ADDRESS, Ip_Address, Copy::bounded},
    {CGS_IP_MASK, Ip_Mask, Copy::bounded},
    {CGS_IP_GATEWAY, Ip_Gateway, Copy::bounded},
    {CGS_COUNTRY, Country, Copy::terminated},
    {CGS_LANGUAGE, Language, Copy::terminated},
    {CGS_IDTIMEZONE, Idtimezone, Copy::terminated},
    {CGS_CODTIMEZONE, Codtimezone, Copy::terminated},
    {CGS_LCD_CODBLOQUEO, Lcd_Codbloqueo, Copy::bounded},
};
static_assert(complete(kTexts, CGS_LCD_CODBLOQUEO) && writable(kTexts));
// clang-format on

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = nullptr,
    .integers = {kIntegers, Outside::ignored},
    .texts = {kTexts, Outside::first},
};

// Measures one column and copies the other, on purpose: see the header.
void getstr_language(std::uint8_t* buffer, int size) {
    const OnlyRow<Record> row(kFamily.database, kFamily.clause);
    std::string text;
    if (row) {
        text = row->Country->getString();
        text.resize(row->Language->getString().size());
    }
    put_text(text, Copy::terminated, buffer, size);
}

// What the board's other programs call a value of the masters.
int stored(e_ConfiguracionGen selector, int given) {
#define STORED_AS(of, value, other)           \
    if (selector == (of) && given == (value)) \
        return other;
#define LINES "protocol/parameters.def"
#include "protocol/lines.inc"
    return given;
}

}  // namespace

int get_ConfiguracionGen(e_ConfiguracionGen selector) {
    return kFamily.get(selector);
}

int set_ConfiguracionGen(e_ConfiguracionGen selector, int value) {
    return kFamily.set(selector, stored(selector, value));
}

void getstr_ConfiguracionGen(e_str_ConfiguracionGen selector, std::uint8_t* buffer, int size) {
    if (selector == CGS_LANGUAGE)
        getstr_language(buffer, size);
    else
        kFamily.getstr(selector, buffer, size);
}

int setstr_ConfiguracionGen(e_str_ConfiguracionGen selector, const char* text, unsigned size) {
    return kFamily.setstr(selector, text, size);
}
