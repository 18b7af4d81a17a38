// The integer types of the lens daemon, and the way words that threads or processes share are touched.
#pragma once

#include <atomic>
#include <cstdint>

using u8 = std::uint8_t;
using i32 = std::int32_t;
using u32 = std::uint32_t;
using i64 = std::int64_t;
using u64 = std::uint64_t;

// A word that another thread or process may touch is touched through these everywhere, also by its owner: a single
// plain access is a data race.  Load and Store carry a value and order nothing.  Publish and Take carry a flag: a
// thread that takes it set may then read what the publisher wrote before it.
inline u32 Word_Load(const u32& dw) {
  return std::atomic_ref(const_cast<u32&>(dw)).load(std::memory_order_relaxed);
}
inline i32 Word_Load(const i32& i) {
  return std::atomic_ref(const_cast<i32&>(i)).load(std::memory_order_relaxed);
}
inline void Word_Store(u32& dw, u32 dwNew) {
  std::atomic_ref(dw).store(dwNew, std::memory_order_relaxed);
}
inline void Word_Store(i32& i, i32 iNew) {
  std::atomic_ref(i).store(iNew, std::memory_order_relaxed);
}
inline u32 Word_Take(const u32& dw) {
  return std::atomic_ref(const_cast<u32&>(dw)).load(std::memory_order_acquire);
}
inline void Word_Publish(u32& dw, u32 dwNew) {
  std::atomic_ref(dw).store(dwNew, std::memory_order_release);
}

static_assert(std::atomic_ref<u32>::is_always_lock_free && std::atomic_ref<u32>::required_alignment == alignof(u32));
static_assert(std::atomic_ref<i32>::is_always_lock_free && std::atomic_ref<i32>::required_alignment == alignof(i32));
