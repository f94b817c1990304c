// What `dump` has written, read again.
#pragma once

#include <string>

#include "master/configuration.h"
#include "zondarctl/report.h"

namespace zondarctl {

struct Dump {
    SettingList settings;
    std::string model;  // of the module that it is of, as model_of() gives it; empty when unknown
};

// Throws a UsageError when the file is not there, no dump, or one that is not whole.
Dump read_dump(const std::string& path);

// The model and name of an identification: "ZND ZND2AV-T".
std::string model_of(const Items& identification);

}  // namespace zondarctl
