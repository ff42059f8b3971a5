// See value_ids.h.
#include "value_ids.h"

#include <bit>
#include <cmath>

namespace velmora::query {
namespace {

constexpr std::size_t firstSlots = 512;

}  // namespace

ValueIds::ValueIds() : slots_(firstSlots), near_(nearCount, none) {}

ValueIds::Key ValueIds::keyOf(const ColumnBatch& batch, std::size_t place) noexcept {
  if (!batch.isGiven(place)) return {0, 0, Sort::null};
  switch (batch.type()) {
    case AnswerType::integer:
      return {static_cast<std::uint64_t>(batch.integer(place)), 0, Sort::integer};
    case AnswerType::real: {
      // A float that is whole is that number.
      constexpr double limit = 0x1p63;
      const double value = batch.real(place);
      if (value >= -limit && value < limit && std::floor(value) == value) {
        return {static_cast<std::uint64_t>(static_cast<std::int64_t>(value)), 0, Sort::integer};
      }
      return {std::bit_cast<std::uint64_t>(value), 0, Sort::real};
    }
    case AnswerType::boolean:
      return {static_cast<std::uint64_t>(batch.integer(place)), 0, Sort::boolean};
    case AnswerType::null:
    case AnswerType::text:
      break;
  }
  const Text& text = batch.text(place);
  Key key{0, 0, Sort::text};
  if (text.getWords(key.first, key.second)) return key;
  return {text.hash(), 0, Sort::longText, &text};
}

std::size_t ValueIds::slotOf(const Key& key) const noexcept {
  constexpr std::uint64_t golden = 0x9E3779B97F4A7C15;
  constexpr std::uint64_t odd = 0xFF51AFD7ED558CCD;
  const std::size_t mask = slots_.size() - 1;
  const int shift = 64 - std::countr_zero(slots_.size());
  for (std::size_t at = ((key.first ^ key.second * odd) * golden) >> shift;; at = (at + 1) & mask) {
    const Slot& slot = slots_[at];
    if (slot.sort == Sort::empty) return at;
    const bool isEqual = slot.first == key.first && slot.second == key.second &&
                         slot.sort == key.sort &&
                         (key.text == nullptr || texts_[slot.id] == *key.text);
    if (isEqual) return at;
  }
}

std::uint32_t ValueIds::addKey(const Key& key) {
  Slot& found = slots_[slotOf(key)];
  if (found.sort != Sort::empty) return found.id;
  if (key.text != nullptr) {
    texts_.resize(size_);  // others have none
    texts_.push_back(*key.text);
  }
  found = {key.first, key.second, key.sort, size_};
  const std::uint32_t id = size_++;
  if (2 * std::size_t{size_} > slots_.size()) grow();
  return id;
}

std::uint32_t ValueIds::addUnseen(std::uint64_t integer) {
  const std::uint32_t id = addKey({integer, 0, Sort::integer});
  if (integer < nearCount) near_[integer] = id;
  return id;
}

void ValueIds::grow() {
  std::vector<Slot> old(2 * slots_.size());
  old.swap(slots_);
  for (const Slot& slot : old) {
    if (slot.sort == Sort::empty) continue;
    const Text* const text = slot.sort == Sort::longText ? &texts_[slot.id] : nullptr;
    slots_[slotOf({slot.first, slot.second, slot.sort, text})] = slot;
  }
}

void ValueIds::add(const ColumnBatch& batch, std::span<const std::uint16_t> places,
                   std::uint32_t* ids) {
  if (batch.type() == AnswerType::integer && !batch.hasNulls()) {
    batch.withIntegers([&](const auto* values) {
      for (std::size_t i = 0; i < places.size(); ++i) ids[i] = addInteger(values[places[i]]);
    });
    return;
  }
  for (std::size_t i = 0; i < places.size(); ++i) ids[i] = addKey(keyOf(batch, places[i]));
}

void ValueIds::addGiven(const ColumnBatch& batch, std::span<const std::uint16_t> places,
                        std::uint32_t* ids) {
  for (std::size_t i = 0; i < places.size(); ++i) {
    ids[i] = batch.isGiven(places[i]) ? addKey(keyOf(batch, places[i])) : none;
  }
}

void ValueIds::findGiven(const ColumnBatch& batch, std::span<const std::uint16_t> places,
                         std::uint32_t* ids) const {
  for (std::size_t i = 0; i < places.size(); ++i) {
    ids[i] = none;
    if (!batch.isGiven(places[i])) continue;
    const Slot& slot = slots_[slotOf(keyOf(batch, places[i]))];
    if (slot.sort != Sort::empty) ids[i] = slot.id;
  }
}

std::uint32_t ValueIds::addPair(std::uint32_t first, std::uint32_t second) {
  return addInteger(static_cast<std::int64_t>(std::uint64_t{first} << 32 | second));
}

}  // namespace velmora::query
