#include "processor/commands.h"

#include <cstdint>
#include <iterator>

#include "link/mensaje.h"
#include "processor/configuration.h"
#include "processor/identification.h"
#include "processor/protocol_log.h"
#include "processor/status.h"
#include "processor/subcommands.h"

namespace {

void answer_status(const mensaje& /*request*/, mensaje& answer) {
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

using Handler = void (*)(const mensaje& request, mensaje& answer);

// By the code.
constexpr Handler kHandlers[] = {
#define COMMAND(code, id, name, request, answer, other_answer, meaning, handler) handler,
#define LINES "protocol/commands.def"
#include "protocol/lines.inc"
};

}  // namespace

std::unique_ptr<mensaje> procesar_comando(const mensaje& request) {
    if (request.comando >= std::size(kHandlers)) {
        log_problem("CMD: ERROR: comando no soportado\n");
        return nullptr;
    }
    auto answer = std::make_unique<mensaje>();  // zero-filled
    answer->comando = request.comando;
    kHandlers[request.comando](request, *answer);
    return answer;
}
