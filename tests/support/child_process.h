// Runs a piece of a test in a forked child, for code that changes
// process-wide state (a descriptor opened once, scheduling, credentials) and
// so needs a fresh process each time.
#pragma once

#include <functional>
#include <string>

namespace ku_test {

// Runs `body` in a child process. The child's result text comes back: empty
// for success, else a description of what went wrong. A child that does not
// end normally gives a text that says so.
std::string run_in_child(const std::function<std::string()> &body);

}  // namespace ku_test
