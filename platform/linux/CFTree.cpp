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
  CFTreeRef waiting = FirstChild();
  if (waiting == nullptr) return;
  if (toBeReleased != nullptr) {
    ChildrenIfAny()->last->nextSibling = *toBeReleased;
    *toBeReleased = waiting;
    return;
  }
  toBeReleased = &waiting;
  while (waiting != nullptr) {
    CFTreeRef const child = waiting;
    waiting = std::exchange(child->nextSibling, nullptr);
    child->Release();
  }
  toBeReleased = nullptr;
}

void CFTreeAppendChild(CFTreeRef tree, CFTreeRef newChild) {
  if (!tree->hasRoom) return;
  newChild->Retain();
  tree->Append(newChild);
}

CFIndex CFTreeGetChildCount(CFTreeRef tree) {
  return tree->hasRoom ? tree->ChildrenIfAny()->count : 0;
}

CFTreeRef CFTreeGetChildAtIndex(CFTreeRef tree, CFIndex index) {
  if (index < 0 || index >= CFTreeGetChildCount(tree)) return nullptr;
  __CFTree::Children& children = *tree->ChildrenIfAny();
  if (index == 0) return children.first;  // and leaves the memory alone
  if (children.recent == nullptr || index < children.recentIndex) {
    children.recent = children.first;
    children.recentIndex = 0;
  }
  while (children.recentIndex < index) {
    children.recent = children.recent->nextSibling;
    ++children.recentIndex;
  }
  return children.recent;
}
