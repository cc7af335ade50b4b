#pragma once

#include <CoreFoundation/CFRunLoop.h>
#include <glib.h>

#include "platform/linux/CFObject.h"

// A run loop stands for an event context. What is to come back to its thread is a source attached
// to `context`; one that waits for another thread must have a ready time, since a run loop takes a
// context without times and descriptors for empty.
struct __CFRunLoop final : CFObject {
  explicit __CFRunLoop(GMainContext* of) : context(g_main_context_ref(of)) {}
  ~__CFRunLoop() override { g_main_context_unref(context); }

  GMainContext* const context;
};

// Keeps the run loop to the calling thread, whose own it must be, until LetRunLoopGo: what is to
// come back to this thread could otherwise be called by another that begins to run the context, or
// be waited for on one that this thread takes up instead. False for another thread's, which stays
// as it is.
bool KeepRunLoop(CFRunLoopRef runLoop);
void LetRunLoopGo(GMainContext* context);
