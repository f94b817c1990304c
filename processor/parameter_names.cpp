#include "processor/parameter_names.h"

#include "params/column_names.h"

namespace {

ColumnName column_of(const Number& number) {
    const int selector = number.selector;
    switch (number.of) {
        case Number::Of::general:
            return column_name(static_cast<e_ConfiguracionGen>(selector));
        case Number::Of::input:
            return column_name(static_cast<e_EntradaAV>(selector));
        case Number::Of::rf_output:
            return column_name(static_cast<e_RFOut>(selector));
        case Number::Of::service:
            return column_name(static_cast<e_ServiciosSalida>(selector));
        case Number::Of::stream:
            return {"PIDsSalida", "Seleccionado"};
        case Number::Of::network:
            if (selector == kNoTsidOut)
                return {"Red", "TSID_Out"};
            if (selector == kNoOnidOut)
                return {"Red", "ONID_Out"};
            return column_name(static_cast<e_Red>(selector));
        case Number::Of::ip_output:
            return column_name(static_cast<e_IPOut>(selector));
    }
    return {};
}

ColumnName column_of(const Text& text) {
    const int selector = text.selector;
    switch (text.of) {
        case Text::Of::general:
            return column_name(static_cast<e_str_ConfiguracionGen>(selector));
        case Text::Of::service:
            return column_name(static_cast<e_str_ServiciosSalida>(selector));
        case Text::Of::network:
            return column_name(static_cast<e_str_Red>(selector));
        case Text::Of::ip_output:
            return column_name(static_cast<e_str_IPOut>(selector));
    }
    return {};
}

std::string row_of(const Number& number) {
    switch (number.of) {
        case Number::Of::input:
        case Number::Of::service:
            return std::to_string(number.index) + ".";
        case Number::Of::stream:
            return std::to_string(number.index) + "." + std::to_string(number.selector) + ".";
        case Number::Of::general:
        case Number::Of::rf_output:
        case Number::Of::network:
        case Number::Of::ip_output:
            break;
    }
    return "";
}

std::string row_of(const Text& text) {
    return text.of == Text::Of::service ? std::to_string(text.index) + "." : "";
}

template <typename Parameter>
std::string name(const Parameter& parameter) {
    const ColumnName column = column_of(parameter);
    return std::string(column.table) + "." + row_of(parameter) + column.column;
}

}  // namespace

std::string name_of(const Number& number) {
    return name(number);
}

std::string name_of(const Text& text) {
    return name(text);
}

// The selectors of the other tables all have theirs.
bool has_column(const Number& number) {
    return number.of != Number::Of::network ||
           column_name(static_cast<e_Red>(number.selector)).column != nullptr;
}
