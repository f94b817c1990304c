#include "processor/commands.h"

#include <syslog.h>

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "link/mensaje.h"
#include "processor/conf_log.h"
#include "processor/identification.h"
#include "processor/status.h"

namespace {

constexpr std::uint8_t kRefused = 255;  // the length of a refusal; its info stays zero

void debug(const char* text) {
    log_category(kLogZondar, LOG_DEBUG, text);
}

void warning(const char* text) {
    log_category(kLogZondar, LOG_WARNING, text);
}

void answer_state(const mensaje& /*request*/, mensaje& answer) {
    debug("CMD: Peticion de estado o alarmas\n");
    put_status(answer);
}

// Answered without values for now. The request must hold exactly its ID_PARAMETROS; 2 is block 2,
// all else block 1.
void answer_configuration(const mensaje& request, mensaje& /*answer*/) {
    if (request.longitud != 1)
        warning("CMD: Peticion de configuracion de longitud incorrecta.\n");
    else if (request.info[0] == 2)
        debug("CMD: Peticion de configuracion ID_PARAMETROS 2.\n");
    else
        debug("CMD: Peticion de configuracion ID_PARAMETROS 1.\n");
}

// No sub-command is known yet, so every write is refused.
void write_parameter(const mensaje& request, mensaje& answer) {
    debug("CMD: Comando escritura parametros.\n");
    if (request.longitud < 2)
        warning("Comando con longitud no esperada.\n");
    else
        warning("Comando - Subcomando no reconocido.\n");
    answer.longitud = kRefused;
}

void answer_identification(const mensaje& /*request*/, mensaje& answer) {
    debug("CMD: Peticion de identificacion\n");
    put_identification(answer);
}

struct Command {
    std::uint8_t code;
    void (*handle)(const mensaje& request, mensaje& answer);
};

constexpr Command kCommands[] = {
    {0, answer_state},           // status and alarms
    {1, answer_configuration},   // configuration, block 1 or 2
    {2, answer_state},           // one command with 0, masters use both
    {3, write_parameter},        // one parameter, named by its sub-command
    {4, answer_identification},  // who the device is
};

constexpr bool codes_are_indexes() {
    for (std::size_t i = 0; i < std::size(kCommands); ++i) {
        if (kCommands[i].code != i)
            return false;
    }
    return true;
}
static_assert(codes_are_indexes());

}  // namespace

std::unique_ptr<mensaje> procesar_comando(const mensaje& request) {
    if (request.comando >= std::size(kCommands)) {
        warning("CMD: ERROR: comando no soportado\n");
        return nullptr;
    }
    auto answer = std::make_unique<mensaje>();  // zero-filled
    answer->comando = request.comando;
    kCommands[request.comando].handle(request, *answer);
    return answer;
}
