// Requests to the command processor from a target's input, and what holds of every answer.
//
//   1 byte              the command; bit 7: bytes behind the info follow
//   1 byte N, N bytes   the info
//   1 byte B, B bytes   with bit 7 only: what stands behind the info in the record, codes first
#pragma once

#include <memory>

#include "fuzz/input.h"
#include "link/mensaje.h"
#include "protocol/description.h"

// On the heap, so that a sanitizer sees a read beyond its end.
std::unique_ptr<const mensaje> read_request(Input& input);

// The sub-command of a request; null for any other command and for what is refused.
const protocol::Subcommand* subcommand_of(const mensaje& request);

// Carries out the request. Whatever the databases hold, the answer has its length, its command and
// its sub-command; one shell is run for each reset of the network or the board, and the clock set
// once for each time and date.
std::unique_ptr<const mensaje> carry_out(const mensaje& request);
