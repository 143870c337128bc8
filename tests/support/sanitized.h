// SCANSTEPS_SANITIZED stands for a program built with AddressSanitizer or ThreadSanitizer, whichever
// compiler.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SCANSTEPS_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SCANSTEPS_SANITIZED
#endif
#endif
