#pragma once

// While this lives, the system's listing of directories tells no kinds, as on some file systems.
class ListingWithoutKinds {
 public:
  ListingWithoutKinds();
  ListingWithoutKinds(ListingWithoutKinds const&) = delete;
  ListingWithoutKinds& operator=(ListingWithoutKinds const&) = delete;
  ~ListingWithoutKinds();
};
