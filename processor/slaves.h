// The slave modules, remote encoders that ask the master for their settings and report to it.
#pragma once

struct mensaje;

// The handlers of their sub-commands. All but the two that carry a channel alone begin with the
// slave's MAC address, and see to it that there is a row for a slave.
void answer_pending_state(const mensaje& request, mensaje& answer);
void answer_encoder(const mensaje& request, mensaje& answer);
void reset_pending_state(const mensaje& request, mensaje& answer);
void confirm_pending_state(const mensaje& request, mensaje& answer);
void store_encoder_status(const mensaje& request, mensaje& answer);
void register_slave(const mensaje& request, mensaje& answer);
void answer_upgrade(const mensaje& request, mensaje& answer);
void store_slave_state(const mensaje& request, mensaje& answer);

// True once a slave of that identifier has registered; false for any that no slave can have.
bool slave_seen(int slave);
