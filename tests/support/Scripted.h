#pragma once

// An object that does what a test tells it to.

#include <functional>
#include <utility>

#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/strings/CUStringMac.h"

// Does something as it dies, and describes itself by whatever a function gives.
class Scripted : public CUObject {
 public:
  explicit Scripted(std::function<CUSharedPtr<CUStringMac>()> description,
                    std::function<void()> atDeath = nullptr)
      : m_description(std::move(description)), m_atDeath(std::move(atDeath)) {}
  ~Scripted() override {
    if (m_atDeath) m_atDeath();
  }
  CUSharedPtr<CUStringMac> Description() override { return m_description(); }

 private:
  std::function<CUSharedPtr<CUStringMac>()> m_description;
  std::function<void()> m_atDeath;
};
