#pragma once

// Error codes as the library throws them.

// The code that `work` throws as an `unsigned int`; 0 for none. Whatever else it throws gets out.
template <class Work>
unsigned int ThrownCode(Work const& work) {
  try {
    work();
  } catch (unsigned int code) {
    return code;
  }
  return 0;
}
