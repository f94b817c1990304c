#include "params/service_state.h"

#include "params/EntradaAV.h"
#include "params/family.h"

namespace {

constexpr int kStateOff = 1;
constexpr int kStoredOff = 2;

OnlyRow<queltdb::tPIDsSalida> stream_of(e_serv_type type, int service) {
    return OnlyRow<queltdb::tPIDsSalida>(ConfDB, "WHERE fk_idServicio='%d' AND Tipo='%d'", service,
                                         static_cast<int>(type));
}

// A state that is not off is read again and the second reading ignored, deliberately: how long such
// a write waits for a locked database, and how often it says so, is what masters and log readers
// know.
bool is_off(e_serv_type type, int service) {
    if (get_service_state(type, service) == kStateOff)
        return true;
    get_service_state(type, service);
    return false;
}

// Returns the types that will be off once `type` is written with `value`; none for an unknown type.
int types_off(e_serv_type type, int service, int value) {
    constexpr int kType1Off = 2;
    constexpr int kType2Off = 1;
    const bool off = value == 0;
    switch (type) {
        case ST_TIPO_1:
            return (off ? kType1Off : 0) | (is_off(ST_TIPO_2, service) ? kType2Off : 0);
        case ST_TIPO_2:
            return (off ? kType2Off : 0) | (is_off(ST_TIPO_1, service) ? kType1Off : 0);
        default:
            return 0;
    }
}

}  // namespace

int get_service_state(e_serv_type type, int service) {
    const auto stream = stream_of(type, service);
    if (!stream)
        return -1;
    // Unsigned, since any number may be stored.
    const auto selected =
        static_cast<unsigned>(queltdb::textoAEntero(stream->Seleccionado->texto()));
    return static_cast<int>(selected - 1);
}

int set_service_state(e_serv_type type, int service, int value) {
    const int result = set_EntradaAV(EAV_REMUX_AV, service, types_off(type, service, value));
    auto stream = stream_of(type, service);
    if (!stream)
        return -1;
    stream->setSeleccionado(queltdb::tSqlite3int(value == 0 ? kStoredOff : value));
    stream.write();
    return result;
}
