#pragma once

// Owners of what the system and its libraries hand out: each lets its handle go exactly once.

#include <dirent.h>
#include <expat.h>
#include <gio/gio.h>
#include <glib.h>
#include <libmount/libmount.h>
#include <libudev.h>
#include <unicode/ucal.h>
#include <unicode/ucnv.h>
#include <unicode/ucol.h>
#include <unicode/udat.h>
#include <unicode/usearch.h>
#include <unicode/uset.h>
#include <unistd.h>

#include <utility>

// Owns a handle that `Close` lets go, or null. Move-only.
template <class T, void (*Close)(T*)>
class Handle {
 public:
  Handle() noexcept = default;
  explicit Handle(T* handle) noexcept : m_handle(handle) {}
  Handle(Handle&& other) noexcept : m_handle(other.Release()) {}
  Handle& operator=(Handle&& other) noexcept {
    Handle taken(std::move(other));
    std::swap(m_handle, taken.m_handle);
    return *this;
  }
  ~Handle() {
    if (m_handle != nullptr) Close(m_handle);
  }

  T* Get() const noexcept { return m_handle; }
  explicit operator bool() const noexcept { return m_handle != nullptr; }

  // Hands the handle to the caller, who closes it.
  T* Release() noexcept { return std::exchange(m_handle, nullptr); }

 private:
  T* m_handle = nullptr;
};

using CalendarHandle = Handle<UCalendar, ucal_close>;
using CollationElementsHandle = Handle<UCollationElements, ucol_closeElements>;
using CollatorHandle = Handle<UCollator, ucol_close>;
using ConverterHandle = Handle<UConverter, ucnv_close>;
using DateFormatHandle = Handle<UDateFormat, udat_close>;
using ErrorHandle = Handle<GError, g_error_free>;
using SearchHandle = Handle<UStringSearch, usearch_close>;
using SetHandle = Handle<USet, uset_close>;
using SourceHandle = Handle<GSource, g_source_unref>;
using TimeZoneHandle = Handle<GTimeZone, g_time_zone_unref>;
using XmlParserHandle = Handle<XML_ParserStruct, XML_ParserFree>;

inline void CloseFile(GFile* file) { g_object_unref(file); }
inline void CloseDirectory(DIR* directory) { closedir(directory); }
inline void CloseUdev(udev* context) { udev_unref(context); }
inline void CloseUdevDevice(udev_device* device) { udev_device_unref(device); }

using DirectoryHandle = Handle<DIR, CloseDirectory>;
using FileHandle = Handle<GFile, CloseFile>;
using MountIteratorHandle = Handle<libmnt_iter, mnt_free_iter>;
using MountTableHandle = Handle<libmnt_table, mnt_unref_table>;
using UdevDeviceHandle = Handle<udev_device, CloseUdevDevice>;
using UdevHandle = Handle<udev, CloseUdev>;

// Owns an open file descriptor, or none (-1). Move-only.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int descriptor) noexcept : m_descriptor(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : m_descriptor(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Descriptor taken(std::move(other));
    std::swap(m_descriptor, taken.m_descriptor);
    return *this;
  }
  ~Descriptor() {
    if (IsOpen()) ::close(m_descriptor);
  }

  int Get() const noexcept { return m_descriptor; }
  bool IsOpen() const noexcept { return m_descriptor >= 0; }

  // Hands the descriptor to the caller, who closes it.
  int Release() noexcept { return std::exchange(m_descriptor, -1); }

 private:
  int m_descriptor = -1;
};
