// Private mount and network namespaces for tests that must change a fixed
// system path (bind a test CA bundle over the machine's one) or must be sure
// that no lookup leaves the machine: only a loopback interface exists in
// there, and mounts vanish with the process.
#pragma once

#include <string>

namespace ku_test {

// Call from a static initialiser, before any thread starts (namespaces belong
// to threads): moves the process into them and brings their loopback up;
// false when the machine does not allow it.
bool enter_private_namespaces();
// Why the namespaces are not available, for a skip message.
std::string private_namespaces_missing_reason();
// Binds `source` over the file `target` for this process; false outside.
bool bind_over(const std::string &source, const std::string &target);

}  // namespace ku_test
