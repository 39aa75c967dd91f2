// Routes strdup and strndup through malloc, so that AllocControl can fail and
// count them everywhere, also under AddressSanitizer, whose own strdup takes
// memory from its allocator without calling malloc. The replacement is part
// of a test executable only when the test calls use_strdup_via_malloc().
#pragma once

namespace ku_test {

// Does nothing; calling it links the replacement in.
void use_strdup_via_malloc();

}  // namespace ku_test
