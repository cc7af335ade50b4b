#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFString.h>
#include <IOKit/IOKitLib.h>

#include <climits>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "platform/linux/RegistryDevice.h"

namespace {

using DevicePointer = std::shared_ptr<RegistryDevice const>;

// A device, or an iterator over some, which then has no device of its own.
struct RegistryObject {
  DevicePointer device;
  std::vector<RegistryDevice> ancestors;
  std::size_t next = 0;
  unsigned int references = 1;
};

// The objects by number, which is their place counted from 1. The lowest free number is given out
// first, so that one that is never let go shows.
class Registry {
 public:
  // Null on a number that is no object. The lock is held by the caller as long as it is used.
  RegistryObject* Find(io_object_t number) {
    return number >= 1 && number <= m_objects.size() ? m_objects[number - 1].get() : nullptr;
  }

  io_object_t Add(std::unique_ptr<RegistryObject> object) {
    std::lock_guard<std::mutex> const guard(lock);
    std::size_t index = 0;
    while (index < m_objects.size() && m_objects[index] != nullptr) ++index;
    if (index == m_objects.size()) m_objects.emplace_back();
    m_objects[index] = std::move(object);
    return static_cast<io_object_t>(index + 1);
  }

  void Remove(io_object_t number) { m_objects[number - 1].reset(); }

  // The device with that number, or null.
  DevicePointer DeviceOf(io_object_t number) {
    std::lock_guard<std::mutex> const guard(lock);
    RegistryObject const* const object = Find(number);
    return object != nullptr ? object->device : nullptr;
  }

  std::mutex lock;

 private:
  std::vector<std::unique_ptr<RegistryObject>> m_objects;
};

Registry& SharedRegistry() {
  static auto* const registry = new Registry;  // never destroyed: other threads may outlive main
  return *registry;
}

io_object_t AddDevice(RegistryDevice device) {
  auto object = std::make_unique<RegistryObject>();
  object->device = DevicePointer(new RegistryDevice(std::move(device)));
  return SharedRegistry().Add(std::move(object));
}

bool Is(CFStringRef key, CFStringRef name) {
  return CFStringCompare(key, name, 0) == kCFCompareEqualTo;
}

CFStringRef CreateString(char const* text) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(text),
                                 static_cast<CFIndex>(std::strlen(text)), kCFStringEncodingUTF8,
                                 false);
}

// A dictionary of one string; null where `text` is not UTF-8 or when memory runs out.
CFMutableDictionaryRef CreateDictionary(CFStringRef key, char const* text) {
  CFStringRef const value = CreateString(text);
  if (value == nullptr) return nullptr;
  CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  if (dictionary != nullptr) {
    CFDictionarySetValue(dictionary, key, value);
    if (CFDictionaryGetCount(dictionary) == 0) {
      CFRelease(dictionary);
      dictionary = nullptr;
    }
  }
  CFRelease(value);
  return dictionary;
}

CFTypeRef CreateBoolean(bool value) { return CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse); }

// The name in UTF-8; empty where it is none that a device could have.
std::string NameToMatch(CFDictionaryRef matching) {
  auto const* const name =
      static_cast<CFStringRef>(CFDictionaryGetValue(matching, CFSTR("BSD Name")));
  if (name == nullptr) return {};
  CFRange const all = CFRangeMake(0, CFStringGetLength(name));
  char text[NAME_MAX];
  CFIndex size = 0;
  CFIndex const converted = CFStringGetBytes(name, all, kCFStringEncodingUTF8, 0, false,
                                             reinterpret_cast<UInt8*>(text), sizeof text, &size);
  return converted == all.length ? std::string(text, static_cast<std::size_t>(size)) : "";
}

io_iterator_t AddIterator(RegistryDevice const& device) {
  auto object = std::make_unique<RegistryObject>();
  object->ancestors = DescribeAncestors(device);
  return SharedRegistry().Add(std::move(object));
}

// The next device of the iterator, or one without a path.
RegistryDevice TakeNext(io_iterator_t iterator) {
  Registry& registry = SharedRegistry();
  std::lock_guard<std::mutex> const guard(registry.lock);
  RegistryObject* const object = registry.Find(iterator);
  if (object == nullptr || object->next == object->ancestors.size()) return {};
  return object->ancestors[object->next++];
}

}  // namespace

CFMutableDictionaryRef IOBSDNameMatching(mach_port_t, IOOptionBits, char const* bsdName) {
  return CreateDictionary(CFSTR("BSD Name"), bsdName);
}

io_service_t IOServiceGetMatchingService(mach_port_t, CFDictionaryRef matching) {
  if (matching == nullptr) return 0;
  io_service_t service = 0;
  try {
    RegistryDevice device = DescribeBlockDevice(NameToMatch(matching));
    if (!device.sysPath.empty()) service = AddDevice(std::move(device));
  } catch (std::bad_alloc const&) {
  }
  CFRelease(matching);
  return service;
}

kern_return_t IOObjectRetain(io_object_t object) {
  Registry& registry = SharedRegistry();
  std::lock_guard<std::mutex> const guard(registry.lock);
  RegistryObject* const found = registry.Find(object);
  if (found == nullptr) return KERN_INVALID_NAME;
  ++found->references;
  return KERN_SUCCESS;
}

kern_return_t IOObjectRelease(io_object_t object) {
  Registry& registry = SharedRegistry();
  std::lock_guard<std::mutex> const guard(registry.lock);
  RegistryObject* const found = registry.Find(object);
  if (found == nullptr) return KERN_INVALID_NAME;
  if (--found->references == 0) registry.Remove(object);
  return KERN_SUCCESS;
}

boolean_t IOObjectConformsTo(io_object_t object, io_name_t const className) {
  DevicePointer const device = SharedRegistry().DeviceOf(object);
  if (device == nullptr || !device->isMedia) return false;
  return std::strcmp(className, "IOMedia") == 0 ||
         (device->discClass != nullptr && std::strcmp(className, device->discClass) == 0);
}

kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry, io_name_t const plane,
                                            IOOptionBits options, io_iterator_t* iterator) {
  if (plane == nullptr || std::strcmp(plane, kIOServicePlane) != 0 || iterator == nullptr ||
      options != (kIORegistryIterateRecursively | kIORegistryIterateParents)) {
    return KERN_INVALID_ARGUMENT;
  }
  DevicePointer const device = SharedRegistry().DeviceOf(entry);
  if (device == nullptr) return KERN_INVALID_NAME;
  try {
    *iterator = AddIterator(*device);
    return KERN_SUCCESS;
  } catch (std::bad_alloc const&) {
    return KERN_RESOURCE_SHORTAGE;
  }
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
  try {
    RegistryDevice device = TakeNext(iterator);
    return device.sysPath.empty() ? io_object_t{0} : AddDevice(std::move(device));
  } catch (std::bad_alloc const&) {
    return 0;
  }
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef, IOOptionBits) {
  DevicePointer const device = SharedRegistry().DeviceOf(entry);
  if (device == nullptr || !device->isMedia) return nullptr;
  if (Is(key, CFSTR("Whole"))) return CreateBoolean(device->isWhole);
  if (Is(key, CFSTR("Removable"))) return CreateBoolean(device->isRemovable);
  if (Is(key, CFSTR("Ejectable"))) return CreateBoolean(device->isEjectable);
  if (device->location == nullptr || !Is(key, CFSTR("Protocol Characteristics"))) return nullptr;
  return CreateDictionary(CFSTR("Physical Interconnect Location"), device->location);
}
