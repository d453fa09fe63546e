#include <CFG/CFG_IteratorBase.h>

#include <algorithm>
#include <limits>

#include <CFG/CFG_ServicesImp.h>
#include <CFG/CFG_Utils.h>
#include <CFG/detail/answered.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_IteratorBase", 502);
}

void CFG_IteratorBase::operator++(int) { ++*this; }

void CFG_IteratorBase::operator++() {
  const auto next =
      std::upper_bound(m_order.begin(), m_order.end(), m_position,
                       [](int32_t slot, const Entry& entry) { return slot < entry.slot; });
  if (next != m_order.end()) {
    m_position = next->slot;
  } else if (m_position < std::numeric_limits<int32_t>::max()) {
    m_position = std::max(m_position + 1, m_slots);
  }
}

long CFG_IteratorBase::ordinal() { return static_cast<long>(m_position) + 1; }

bool CFG_IteratorBase::set_pos(long position) {
  using limits = std::numeric_limits<int32_t>;
  m_position = static_cast<int32_t>(std::clamp<long>(position, limits::min(), limits::max()));
  return is_valid();
}

void CFG_IteratorBase::reset() {
  m_position = -1;
  ++*this;
}

void CFG_IteratorBase::take_child(const RWCString& name, const RWCString& prefix, int32_t child) {
  if (name == prefix) {
    m_order.push_back({0, child});
    return;
  }
  long ordinal;
  RWCString stem = CFG_Utils::ExtractOrdinal(name, &ordinal);
  if (ordinal < 1 || ordinal > std::numeric_limits<int32_t>::max()) return;
  CFG_ServicesImp::tolower(stem);
  if (stem == prefix) m_order.push_back({static_cast<int32_t>(ordinal - 1), child});
}

void CFG_IteratorBase::finish(int32_t children) {
  const auto by_slot = [](const Entry& a, const Entry& b) { return a.slot < b.slot; };
  const auto same_slot = [](const Entry& a, const Entry& b) { return a.slot == b.slot; };
  // Of children with one ordinal the last stays: as the first of its run in reverse order.
  std::stable_sort(m_order.begin(), m_order.end(), by_slot);
  const auto kept = std::unique(m_order.rbegin(), m_order.rend(), same_slot);
  m_order.erase(m_order.begin(), kept.base());
  m_slots = m_order.empty() ? children : std::max(children, m_order.back().slot + 1);
  reset();
}

void CFG_IteratorBase::give_up() noexcept {
  cfg::log_exception(logger, "CFG_IteratorBase(CFG_SubTree* sub_tree, RWCString prefix)");
  m_order.clear();
  m_slots = 0;
}

int32_t CFG_IteratorBase::current_child() const {
  const auto at =
      std::lower_bound(m_order.begin(), m_order.end(), m_position,
                       [](const Entry& entry, int32_t slot) { return entry.slot < slot; });
  return at != m_order.end() && at->slot == m_position ? at->child : -1;
}
