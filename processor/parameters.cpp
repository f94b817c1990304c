#include "processor/parameters.h"

#include <cstddef>

#include "processor/indexed.h"

namespace {

struct NumberAccessors {
    Number::Of of;
    int (*get)(int selector, int index);
    int (*set)(int selector, int index, int value);
};

struct TextAccessors {
    Text::Of of;
    void (*get)(int selector, int index, std::uint8_t* buffer, int size);
    int (*set)(int selector, int index, const char* text, unsigned size);
};

int get_stream(e_serv_type type, int service) {
    return get_service_state(type, service) == 0 ? 1 : 0;
}

// The accessors of a family, of a table with one row or with several.
// clang-format off
#define ONE_ROW(of, selectors, get_one, set_one) \
    {of, [](int s, int) { return get_one(static_cast<selectors>(s)); }, \
         [](int s, int, int value) { return set_one(static_cast<selectors>(s), value); }},
#define ROWS(of, selectors, get_one, set_one) \
    {of, [](int s, int i) { return get_one(static_cast<selectors>(s), i); }, \
         [](int s, int i, int value) { return set_one(static_cast<selectors>(s), i, value); }},
constexpr NumberAccessors kNumbers[] = {
    ONE_ROW(Number::Of::general,   e_ConfiguracionGen, get_ConfiguracionGen, set_ConfiguracionGen)
    ROWS(   Number::Of::input,     e_EntradaAV,        get_EntradaAV,        set_EntradaAV)
    ROWS(   Number::Of::rf_output, e_RFOut,            get_RFOut,            set_RFOut)
    ROWS(   Number::Of::service,   e_ServiciosSalida,  get_ServiciosSalida,  set_ServiciosSalida)
    ROWS(   Number::Of::stream,    e_serv_type,        get_stream,           set_service_state)
    ONE_ROW(Number::Of::network,   e_Red,              get_Red,              set_Red)
    ONE_ROW(Number::Of::ip_output, e_IPOut,            get_IPOut,            set_IPOut)
};
#undef ROWS
#undef ONE_ROW

#define ONE_ROW(of, selectors, get_one, set_one) \
    {of, [](int s, int, std::uint8_t* buffer, int size) { get_one(static_cast<selectors>(s), buffer, size); }, \
         [](int s, int, const char* text, unsigned size) { return set_one(static_cast<selectors>(s), text, size); }},
#define ROWS(of, selectors, get_one, set_one) \
    {of, [](int s, int i, std::uint8_t* buffer, int size) { get_one(static_cast<selectors>(s), i, buffer, size); }, \
         [](int s, int i, const char* text, unsigned size) { return set_one(static_cast<selectors>(s), i, text, size); }},
constexpr TextAccessors kTexts[] = {
    ONE_ROW(Text::Of::general,   e_str_ConfiguracionGen, getstr_ConfiguracionGen, setstr_ConfiguracionGen)
    ROWS(   Text::Of::service,   e_str_ServiciosSalida,  getstr_ServiciosSalida,  setstr_ServiciosSalida)
    ONE_ROW(Text::Of::network,   e_str_Red,              getstr_Red,              setstr_Red)
    ONE_ROW(Text::Of::ip_output, e_str_IPOut,            getstr_IPOut,            setstr_IPOut)
};
#undef ROWS
#undef ONE_ROW
// clang-format on

static_assert(is_indexed_by(kNumbers, &NumberAccessors::of));
static_assert(is_indexed_by(kTexts, &TextAccessors::of));

const NumberAccessors& accessors_of(const Number& number) {
    return kNumbers[static_cast<std::size_t>(number.of)];
}

const TextAccessors& accessors_of(const Text& text) {
    return kTexts[static_cast<std::size_t>(text.of)];
}

}  // namespace

std::uint32_t Number::get(int row_offset) const {
    const int stored = accessors_of(*this).get(selector, index + row_offset);
    return static_cast<std::uint32_t>(stored) - wire_bias;
}

int Number::set(int value) const {
    return accessors_of(*this).set(selector, index, value + wire_bias);
}

void Text::get(std::uint8_t* buffer, int size) const {
    accessors_of(*this).get(selector, index, buffer, size);
}

int Text::set(const char* text, unsigned size) const {
    return accessors_of(*this).set(selector, index, text, size);
}
