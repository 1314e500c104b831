#pragma once

namespace quorvane {

/** Whether this build holds the address sanitizer, which needs more addresses and calls. */
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

}  // namespace quorvane
