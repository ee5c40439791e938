#include "Kel/HashMap.h"

#include <algorithm>
#include <cstring>

#include "Kel/Exception.h"

namespace Kel {

namespace {

std::size_t indexBytes(U32 mask) { return (std::size_t(mask) + 1) * sizeof(U64); }

}  // namespace

U32 HashMapGeneric::newSlot(U32 hash, SlotType const& type) {
  if (!rep_) {
    resize(2, false, type);
  } else if (rep_->used == rep_->cap) {
    bool const close = pins_ == 0 && rep_->live < rep_->used;
    // Closes gaps if that frees at least a quarter of the array; otherwise doubles it.
    U32 const wanted = close && rep_->live <= rep_->cap - rep_->cap / 4 ? rep_->cap : rep_->cap * 2;
    if (wanted > 0x40000000) throwRangeException("hash map full");
    resize(wanted, close, type);
  }
  U32 const slot = rep_->used++;
  ++rep_->live;
  hashes()[slot] = hash;
  if (rep_->index) {
    U32 i = hash & rep_->mask;
    while (rep_->index[i] != 0) i = (i + 1) & rep_->mask;
    rep_->index[i] = (U64(hash) << 32) | (slot + 1);
  }
  return slot;
}

void HashMapGeneric::deleteSlot(U32 slot) noexcept {
  hashes()[slot] = 0;
  --rep_->live;
}

void HashMapGeneric::reserveSlots(U32 count, SlotType const& type) {
  if (count > (rep_ ? rep_->cap : 0)) resize(count, false, type);
}

void HashMapGeneric::releaseStorage(SlotType const& type) noexcept {
  if (!rep_) return;
  if (pins_ != 0) {
    std::fill_n(hashes(), rep_->used, 0u);
    rep_->live = 0;
    return;
  }
  if (rep_->index) KelMemPool::release(rep_->index, indexBytes(rep_->mask));
  KelMemPool::release(rep_, bytes(rep_->cap, type));
  rep_ = nullptr;
}

void HashMapGeneric::resize(U32 cap, bool close, SlotType const& type) {
  U32 mask = 0;
  U64* index = nullptr;
  if (cap > longestUnindexed) {
    mask = 31;
    while (mask < cap + cap / 2) mask = mask * 2 + 1;
    index = static_cast<U64*>(KelMemPool::allocate(indexBytes(mask)));
  }
  Rep* old = rep_;
  try {
    rep_ = new (KelMemPool::allocate(bytes(cap, type))) Rep{0, 0, cap, mask, index};
  } catch (...) {
    if (index) KelMemPool::release(index, indexBytes(mask));
    throw;
  }
  if (old) {
    auto* oldHashes = reinterpret_cast<U32*>(old + 1);
    auto* oldSlots = reinterpret_cast<char*>(old + 1) + slotsOffset(old->cap);
    type.relocate(slots(), oldSlots, oldHashes, old->used, close);
    if (close)
      std::copy_if(oldHashes, oldHashes + old->used, hashes(), [](U32 h) { return h != 0; });
    else
      std::copy_n(oldHashes, old->used, hashes());
    rep_->live = old->live;
    rep_->used = close ? old->live : old->used;
    if (old->index) KelMemPool::release(old->index, indexBytes(old->mask));
    KelMemPool::release(old, bytes(old->cap, type));
  }
  if (index) rebuildIndex();
}

void HashMapGeneric::rebuildIndex() {
  std::memset(rep_->index, 0, indexBytes(rep_->mask));
  U32 const* h = hashes();
  for (U32 slot = 0; slot < rep_->used; ++slot) {
    if (h[slot] == 0) continue;
    U32 i = h[slot] & rep_->mask;
    while (rep_->index[i] != 0) i = (i + 1) & rep_->mask;
    rep_->index[i] = (U64(h[slot]) << 32) | (slot + 1);
  }
}

}  // namespace Kel
