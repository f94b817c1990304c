#include "processor/processor.h"

#include <syslog.h>

#include <atomic>
#include <memory>

#include "link/link_level.h"
#include "processor/commands.h"
#include "processor/conf_log.h"
#include "processor/identification.h"
#include "transport/tcp_transport.h"

namespace {

constexpr std::uint8_t kExpectedSequence = 0;
constexpr int kAttempts = 1;

tPuertoZondar* port = nullptr;  // null until the processor is up

}  // namespace

int zondar_process_init() {
    static tPuertoZondar descriptor{};
    port = &descriptor;
    SetSocketServer_zondar();
    set_zondar_servernumber(0);
    AbrirSocket_zondar();
    fill_identification();
    return 0;
}

void zondar_process(bool* received) {
    if (port == nullptr) {
        log_category(kLogZondar, LOG_ERR, "ERROR: zondar_process: call init before this call.");
        return;
    }
    log_category(kLogZondar, LOG_INFO, "Waiting for zondar message:\n");
    mensaje request{};
    if (Rx_mensaje_zondar(port, kExpectedSequence, &request, kRequestTimeout, kAttempts) !=
        kReceived)
        return;
    log_category(kLogZondar, LOG_INFO, "Zondar message readed.\n");
    std::atomic_ref(*received).store(true, std::memory_order_relaxed);

    const std::unique_ptr<mensaje> answer = procesar_comando(request);
    if (!answer)
        return;
    log_category(kLogZondar, LOG_INFO, "Response to received frame:\n");
    Tx_mensaje_zondar(port, answer.get());
}
