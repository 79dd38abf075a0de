#pragma once

#include <atomic>
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

  /// True when the stack was empty.
  bool add(std::unique_ptr<Node> node) {
    Node* const added = node.release();
    Node* newest = _newest.load(std::memory_order_relaxed);
    do {
      added->next = newest;
    } while (!_newest.compare_exchange_weak(newest, added, std::memory_order_release,
                                            std::memory_order_relaxed));
    return !newest;
  }

  bool empty() const { return !_newest.load(std::memory_order_relaxed); }

  /// In the opposite order of their adding.
  Chain<Node> takeAll() { return Chain(_newest.exchange(nullptr, std::memory_order_acquire)); }

 private:
  std::atomic<Node*> _newest = nullptr;
};

}  // namespace kite
