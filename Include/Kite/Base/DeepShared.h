#pragma once

#include <Kite/Base/Export.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace kite {

/// A heap object that counts its owners, all of which are `DeepShared`s.
class KITE_EXPORT DeepNode {
 public:
  DeepNode() = default;
  DeepNode(const DeepNode&) = delete;
  DeepNode& operator=(const DeepNode&) = delete;
  virtual ~DeepNode();

  void addOwner() noexcept { _owners.fetch_add(1, std::memory_order_relaxed); }
  void removeOwner() noexcept {
    if (_owners.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy(this);
  }

 private:
  /// Destroys the node and, one after the other, all that it was the last owner of.
  static void destroy(DeepNode* node) noexcept;

  std::atomic<std::uint32_t> _owners{1};
  DeepNode* _nextDoomed = nullptr;
};

/// A value on the heap that may own further `DeepShared`s, to any depth: copies share it, and its
/// last owner takes it apart without recursion.
///
/// Counting is safe on any thread. Moving leaves a hole, which is the holder's to fill. `T` may be
/// incomplete until a value is made or read.
template <class T>
class DeepShared {
 public:
  explicit DeepShared(T value) : _node(new Node(std::move(value))) {}
  DeepShared(const DeepShared& other) noexcept : _node(other._node) {
    if (_node != nullptr) _node->addOwner();
  }
  DeepShared(DeepShared&& other) noexcept : _node(std::exchange(other._node, nullptr)) {}
  DeepShared& operator=(DeepShared other) noexcept {
    std::swap(_node, other._node);
    return *this;
  }
  ~DeepShared() {
    if (_node != nullptr) _node->removeOwner();
  }

  /// Whether it was moved from.
  bool isHole() const { return _node == nullptr; }
  const T& operator*() const { return static_cast<const Node*>(_node)->value; }

 private:
  struct Node final : DeepNode {
    explicit Node(T contents) : value(std::move(contents)) {}
    T value;
  };
  DeepNode* _node;
};

}  // namespace kite
