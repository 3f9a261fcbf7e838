#ifndef QEL_TESTS_SUPPORT_SANITIZED_H_
#define QEL_TESTS_SUPPORT_SANITIZED_H_

namespace qel::test {

/// True in builds with a sanitizer. They are there for what only a sanitizer sees; values, which
/// the plain build compares in full, are drawn less often, and what memory does when it is freed is
/// the sanitizer's own.
#ifdef QEL_SANITIZED
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_SANITIZED_H_
