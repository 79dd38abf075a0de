#include <Kite/Base/DeepShared.h>

namespace kite {
namespace {

// Trivial, so that it outlives every other object of its thread.
struct Doomed {
  DeepNode* first;
  bool isBeingEmptied;
};
constinit thread_local Doomed doomed{};

}  // namespace

DeepNode::~DeepNode() = default;

void DeepNode::destroy(DeepNode* node) noexcept {
  node->_nextDoomed = std::exchange(doomed.first, node);
  if (doomed.isBeingEmptied) return;  // called out of a node's destructor: the loop below goes on
  doomed.isBeingEmptied = true;
  while (doomed.first != nullptr) {
    DeepNode* const next = doomed.first;
    doomed.first = next->_nextDoomed;
    delete next;
  }
  doomed.isBeingEmptied = false;
}

}  // namespace kite
