#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace kite {

/// A singly linked list that owns its nodes. A node has a member `Node* next`.
template <class Node>
class Chain {
 public:
  Chain() = default;
  explicit Chain(Node* first) : _first(first) {}
  Chain(Chain&& other) noexcept : _first(std::exchange(other._first, nullptr)) {}
  Chain& operator=(Chain&& other) noexcept {
    std::swap(_first, other._first);
    return *this;
  }
  ~Chain() {
    while (!empty()) takeFirst();
  }

  bool empty() const { return !_first; }
  const Node& first() const { return *_first; }
  std::unique_ptr<Node> takeFirst() {
    std::unique_ptr<Node> taken(_first);
    _first = std::exchange(taken->next, nullptr);
    return taken;
  }
  Node* release() { return std::exchange(_first, nullptr); }
  Chain reversed() && {
    Chain result;
    while (!empty()) {
      Node* const node = takeFirst().release();
      node->next = std::exchange(result._first, node);
    }
    return result;
  }

 private:
  Node* _first = nullptr;
};

/// A multi-producer stack: any thread adds a node, and one call takes all. It is lock-free, so that
/// a thread that is interrupted never holds up another.
template <class Node>
class MPSCStack {
 public:
  MPSCStack() = default;
  MPSCStack(const MPSCStack&) = delete;
  MPSCStack& operator=(const MPSCStack&) = delete;
  ~MPSCStack() { takeAll(); }

  /// The stack just before a node was added: one urgent node makes it urgent until all are taken.
  enum class Before { nothing, patient, urgent };

  Before add(std::unique_ptr<Node> node, bool isUrgent = false) {
    Node* const added = node.release();
    auto newest = _newest.load(std::memory_order_relaxed);
    std::uintptr_t changed = 0;
    do {
      added->next = nodeOf(newest);
      changed = reinterpret_cast<std::uintptr_t>(added) | (newest & urgentBit) |
                (isUrgent ? urgentBit : 0);
    } while (!_newest.compare_exchange_weak(newest, changed, std::memory_order_release,
                                            std::memory_order_relaxed));
    if (newest == 0) return Before::nothing;
    return (newest & urgentBit) != 0 ? Before::urgent : Before::patient;
  }

  /// Whether there are nodes, and none is urgent.
  bool isPatient() const {
    const auto newest = _newest.load(std::memory_order_relaxed);
    return newest != 0 && (newest & urgentBit) == 0;
  }

  /// In the opposite order of their adding.
  Chain<Node> takeAll() { return Chain(nodeOf(_newest.exchange(0, std::memory_order_acquire))); }

 private:
  static constexpr std::uintptr_t urgentBit = 1;  // free, as nodes are aligned

  static Node* nodeOf(std::uintptr_t tagged) {
    return reinterpret_cast<Node*>(tagged & ~urgentBit);
  }

  std::atomic<std::uintptr_t> _newest = 0;
};

}  // namespace kite
