// Watches the library's libcurl calls. Linking this (by naming CurlSpy)
// places wrappers for curl_easy_setopt, curl_easy_perform, the handle
// constructors and destructors and curl_global_init/cleanup in the test
// executable; they record what they see and forward to libcurl.
#pragma once

#include <curl/curl.h>

#include <string>
#include <vector>

namespace ku_test {

struct CurlOption {
    CURLoption option;
    long number = 0;             // long options
    const void *pointer = nullptr;  // pointer and function options
    std::string text;            // copy of string options at the time of the call
    std::vector<std::string> list;  // entries of a CURLOPT_HTTPHEADER list
};

// Records options and counts transfers while alive; one at a time.
class CurlSpy {
public:
    CurlSpy();
    ~CurlSpy();
    CurlSpy(const CurlSpy &) = delete;
    CurlSpy &operator=(const CurlSpy &) = delete;

    std::vector<CurlOption> options() const;
    // The last value given for `option`, or a record with option -1.
    CurlOption last(CURLoption option) const;
    int performs() const;
};

// Process-wide tallies, counted whether or not a CurlSpy is alive.
struct CurlGlobalTally {
    int inits = 0;
    int cleanups = 0;
    // A handle made or a transfer run while libcurl was not initialised, a
    // second global init without cleanup, or a cleanup while handles lived.
    int violations = 0;
    bool initialised = false;
};
CurlGlobalTally curl_global_tally();

}  // namespace ku_test
