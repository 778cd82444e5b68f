// Whether a sanitizer brings its own malloc, which no test may replace.
#pragma once

#ifdef __has_feature
#define HAS_OWN_MALLOC (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HAS_OWN_MALLOC 1
#else
#define HAS_OWN_MALLOC 0
#endif
