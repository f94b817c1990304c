#include "processor/answer_block.h"

#include "link/mensaje.h"
#include "processor/wire_integers.h"

namespace {

void put_number(std::uint32_t value, const Field& field, std::uint8_t* at) {
    if (field.digit != 0)
        *at = static_cast<std::uint8_t>(*at | value << field.digit);
    else
        int322buff(static_cast<int>(value), at, static_cast<e_int32_len>(field.width - 1));
}

}  // namespace

void put_fields(std::span<const Field> fields, mensaje& answer, int row_offset) {
    for (const Field& field : fields) {
        std::uint8_t* const at = &answer.info[field.position];
        if (const auto* const computed = std::get_if<Computed>(&field.source))
            put_number((*computed)(), field, at);
        else if (const auto* const filled = std::get_if<Filled>(&field.source))
            (*filled)(at);
        else if (const auto* const number = std::get_if<Number>(&field.source))
            put_number(number->get(row_offset), field, at);
        else if (const auto* const text = std::get_if<Text>(&field.source))
            text->get(at, field.width);
        answer.longitud = static_cast<std::uint8_t>(field.position + field.width);
    }
}
