#include "processor/parameters.h"

namespace {

int stored(const Number& number, int index) {
    const int selector = number.selector;
    switch (number.of) {
        case Number::Of::general:
            return get_ConfiguracionGen(static_cast<e_ConfiguracionGen>(selector));
        case Number::Of::input:
            return get_EntradaAV(static_cast<e_EntradaAV>(selector), index);
        case Number::Of::rf_output:
            return get_RFOut(static_cast<e_RFOut>(selector), index);
        case Number::Of::service:
            return get_ServiciosSalida(static_cast<e_ServiciosSalida>(selector), index);
        case Number::Of::stream:
            return get_service_state(static_cast<e_serv_type>(selector), index) == 0 ? 1 : 0;
        case Number::Of::network:
            return get_Red(static_cast<e_Red>(selector));
        case Number::Of::ip_output:
            return get_IPOut(static_cast<e_IPOut>(selector));
    }
    return 0;
}

int store(const Number& number, int value) {
    const int selector = number.selector;
    switch (number.of) {
        case Number::Of::general:
            return set_ConfiguracionGen(static_cast<e_ConfiguracionGen>(selector), value);
        case Number::Of::input:
            return set_EntradaAV(static_cast<e_EntradaAV>(selector), number.index, value);
        case Number::Of::rf_output:
            return set_RFOut(static_cast<e_RFOut>(selector), number.index, value);
        case Number::Of::service:
            return set_ServiciosSalida(static_cast<e_ServiciosSalida>(selector), number.index,
                                       value);
        case Number::Of::stream:
            return set_service_state(static_cast<e_serv_type>(selector), number.index, value);
        case Number::Of::network:
            return set_Red(static_cast<e_Red>(selector), value);
        case Number::Of::ip_output:
            return set_IPOut(static_cast<e_IPOut>(selector), value);
    }
    return -1;
}

}  // namespace

std::uint32_t Number::get(int further) const {
    return static_cast<std::uint32_t>(stored(*this, index + further)) - first;
}

int Number::set(int value) const {
    return store(*this, value + first);
}

int Number::kept(int value) const {
    return of == Of::general && selector == CG_MODO_ENTRADA ? stored_mode(value) : value;
}

void Text::get(std::uint8_t* buffer, int size) const {
    switch (of) {
        case Of::general:
            return getstr_ConfiguracionGen(static_cast<e_str_ConfiguracionGen>(selector), buffer,
                                           size);
        case Of::service:
            return getstr_ServiciosSalida(static_cast<e_str_ServiciosSalida>(selector), index,
                                          buffer, size);
        case Of::network:
            return getstr_Red(static_cast<e_str_Red>(selector), buffer, size);
        case Of::ip_output:
            return getstr_IPOut(static_cast<e_str_IPOut>(selector), buffer, size);
    }
}

int Text::set(const char* text, unsigned size) const {
    switch (of) {
        case Of::general:
            return setstr_ConfiguracionGen(static_cast<e_str_ConfiguracionGen>(selector), text,
                                           size);
        case Of::service:
            return setstr_ServiciosSalida(static_cast<e_str_ServiciosSalida>(selector), index, text,
                                          size);
        case Of::network:
            return setstr_Red(static_cast<e_str_Red>(selector), text, size);
        case Of::ip_output:
            return setstr_IPOut(static_cast<e_str_IPOut>(selector), text, size);
    }
    return -1;
}
