// The lines of the protocol, one of the categories of conf_log.
#pragma once

// What was asked for, at debug priority.
void log_request(const char* text);

// What is wrong with it, at warning priority.
void log_problem(const char* text);

// The problem of a write when its result is negative, as the accessors report it. The master is
// not told.
void log_if_failed(int result);
