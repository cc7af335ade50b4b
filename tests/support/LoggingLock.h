#pragma once

// A lock that only tells of its use, and throws an int where it is told to.

#include "QuillmereLib/core/CULock.h"
#include "tests/support/CountedObject.h"

class LoggingLock : public CULockAbstract {
 public:
  enum Throws { Never, OnLock, OnUnlock };

  explicit LoggingLock(EventLog& log, Throws throws = Never) : m_log(log), m_throws(throws) {}
  ~LoggingLock() override { m_log.Add("~lock"); }

  void Lock() override {
    m_log.Add("lock");
    if (m_throws == OnLock) throw 1;
  }
  void Unlock() override {
    m_log.Add("unlock");
    if (m_throws == OnUnlock) throw 2;
  }

 private:
  EventLog& m_log;
  Throws m_throws;
};
