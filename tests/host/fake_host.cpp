#include "host/fake_host.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace mp1a_test {

namespace {

fake_host host;

int print(const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    host.messages.emplace_back(text);
    return 0;
}

void *allocate(std::size_t size) {
    ++host.mallocs;
    if (host.malloc_fails) return nullptr;
    // Memory as it comes: anything but zeros.
    void *const block = std::malloc(size);
    std::memset(block, 0xA5, size);
    return block;
}

void release(void *block) {
    ++host.frees;
    std::free(block);
}

} // namespace

fake_host &fake_host::reset() {
    return host = {};
}

void *fake_host::lookup(const char *name) {
    host.names.emplace_back(name);
    const std::string asked = name;
    if (asked == "err_printf") return reinterpret_cast<void *>(print);
    if (asked == "malloc" && host.has_malloc) return reinterpret_cast<void *>(allocate);
    if (asked == "free" && host.has_free) return reinterpret_cast<void *>(release);
    return nullptr;
}

} // namespace mp1a_test
