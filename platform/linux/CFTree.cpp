#include <CoreFoundation/CFTree.h>

#include <utility>

#include "platform/linux/CFXMLObjects.h"

namespace {

// While a tree of this thread is being destroyed: where the children go that are to be released
// after it, linked as siblings.
thread_local CFTreeRef* toBeReleased = nullptr;

}  // namespace

// Subtrees are released one after the other and never within each other, so that the stack does not
// grow with their depth.
__CFTree::~__CFTree() {
  if (node != nullptr) node->Release();
  if (firstChild == nullptr) return;
  if (toBeReleased != nullptr) {
    lastChild->nextSibling = *toBeReleased;
    *toBeReleased = firstChild;
    return;
  }
  CFTreeRef waiting = firstChild;
  toBeReleased = &waiting;
  while (waiting != nullptr) {
    CFTreeRef const child = waiting;
    waiting = std::exchange(child->nextSibling, nullptr);
    child->Release();
  }
  toBeReleased = nullptr;
}

void CFTreeAppendChild(CFTreeRef tree, CFTreeRef newChild) {
  newChild->Retain();
  tree->Append(newChild);
}

CFIndex CFTreeGetChildCount(CFTreeRef tree) { return tree->childCount; }

CFTreeRef CFTreeGetChildAtIndex(CFTreeRef tree, CFIndex index) {
  if (index < 0 || index >= tree->childCount) return nullptr;
  if (tree->recentChild == nullptr || index < tree->recentIndex) {
    tree->recentChild = tree->firstChild;
    tree->recentIndex = 0;
  }
  while (tree->recentIndex < index) {
    tree->recentChild = tree->recentChild->nextSibling;
    ++tree->recentIndex;
  }
  return tree->recentChild;
}
