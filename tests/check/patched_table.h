#ifndef QEL_TESTS_CHECK_PATCHED_TABLE_H_
#define QEL_TESTS_CHECK_PATCHED_TABLE_H_

#include <sched.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace qel::test {

/// The name of the defect that this library has, from the environment; empty for none.
inline std::string_view Defect() {
  const char* const name = std::getenv("QEL_DEFECT");
  return name != nullptr ? name : "";
}

/// Between reading and writing a count, where checkers do not come by themselves.
inline void GiveWay() {
#if !defined(__x86_64__) || defined(__SANITIZE_THREAD__)
  sched_yield();
#endif
}

/// One function table of an object, replaced by a copy in which slots can be exchanged.
class PatchedTable {
 public:
  /// `slots` is the length of the object's table.
  PatchedTable(void* object, size_t slots) {
    void**& table = *static_cast<void***>(object);
    // What describes the type stands before the first slot and moves along.
    void** const copy = static_cast<void**>(std::malloc((slots + 2) * sizeof(void*)));
    std::memcpy(copy, table - 2, (slots + 2) * sizeof(void*));
    table = table_ = copy + 2;
  }

  /// Puts `replacement` into a slot; `original` receives what was there.
  template <typename Function>
  void Replace(size_t slot, Function replacement, Function& original) {
    original = reinterpret_cast<Function>(table_[slot]);
    table_[slot] = reinterpret_cast<void*>(replacement);
  }
  void Swap(size_t a, size_t b) {
    void* const first = table_[a];
    table_[a] = table_[b];
    table_[b] = first;
  }

 private:
  void** table_;
};

/// The function in `slot` of an object's table, for a replacement that has its own original.
template <typename Result, typename... Arguments>
using SlotFunction = Result (*)(void* self, Arguments...);

}  // namespace qel::test

#endif  // QEL_TESTS_CHECK_PATCHED_TABLE_H_
