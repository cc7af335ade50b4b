#pragma once

// Makes the system's listing of directories behave as on other file systems, or fail.

// While this lives, what the library reads of directories is altered; one at a time.
class DirectoryReads {
 public:
  enum Alteration { None, WithoutKinds, FailingAtSecond };

  explicit DirectoryReads(Alteration alteration);
  DirectoryReads(DirectoryReads const&) = delete;
  DirectoryReads& operator=(DirectoryReads const&) = delete;
  ~DirectoryReads();
};
