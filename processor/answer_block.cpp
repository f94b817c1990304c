#include "processor/answer_block.h"

#include "link/mensaje.h"
#include "processor/wire_integers.h"

void put_fields(std::span<const Field> fields, mensaje& answer) {
    for (const Field& field : fields) {
        if (field.value != nullptr)
            int322buff(static_cast<int>(field.value()), &answer.info[field.position],
                       static_cast<e_int32_len>(field.width - 1));
    }
}
