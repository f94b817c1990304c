#include "processor/commands.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "link/mensaje.h"
#include "processor/configuration.h"
#include "processor/identification.h"
#include "processor/protocol_log.h"
#include "processor/status.h"
#include "processor/subcommands.h"

namespace {

void answer_state(const mensaje& /*request*/, mensaje& answer) {
    log_request("CMD: Peticion de estado o alarmas\n");
    put_status(answer);
}

// The request must hold exactly its ID_PARAMETROS; 2 is block 2, all else block 1.
void answer_configuration(const mensaje& request, mensaje& answer) {
    if (request.longitud != 1) {
        log_problem("CMD: Peticion de configuracion de longitud incorrecta.\n");
        return;
    }
    log_request(request.info[0] == 2 ? "CMD: Peticion de configuracion ID_PARAMETROS 2.\n"
                                     : "CMD: Peticion de configuracion ID_PARAMETROS 1.\n");
    put_configuration(request.info[0], answer);
}

void answer_identification(const mensaje& /*request*/, mensaje& answer) {
    log_request("CMD: Peticion de identificacion\n");
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
        log_problem("CMD: ERROR: comando no soportado\n");
        return nullptr;
    }
    auto answer = std::make_unique<mensaje>();  // zero-filled
    answer->comando = request.comando;
    kCommands[request.comando].handle(request, *answer);
    return answer;
}
