// What went on between masters and a module, by the module's own rules: which answer belongs to
// which request, why a request has none, what is not as it should be.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "master/parameters.h"
#include "protocol/description.h"
#include "zondarctl/capture_file.h"

namespace zondarctl {

struct Found {
    protocol::Finding what;
    Moment of;                              // what it is about
    Moment found_in;                        // the packet that showed it
    std::optional<std::size_t> frame = {};  // the one that it is about; none for a connection
    std::size_t connection = 0;
    Direction direction = Direction::unknown;
    std::string detail = {};  // behind its text; perhaps empty
    // Of a read-back that differs: what it should be, and what it is.
    const master::Parameter* parameter = nullptr;
    master::Value written = {};
    master::Value read = {};
};

// What a frame has to do with others.
struct Partner {
    std::optional<std::size_t> frame = {};            // the answer, or the request
    std::optional<protocol::Finding> no_answer = {};  // why a request will have none
};

struct Conversation {
    std::vector<Partner> partners = {};  // of each frame
    std::vector<Found> findings = {};    // by the packets that they are about
};

// Of what read_capture gave; what it has no events of tells nothing. Frames and connections are
// told by their index there.
Conversation conversation_of(const Captured& captured);

}  // namespace zondarctl
