#pragma once

// The registry of devices: block devices by name, their ancestors, and what is known of each.
//
// Objects are numbers, never 0, each with a count of references of its own. What a function returns
// or stores counts one reference for the caller, who lets it go with IOObjectRelease; with the last
// one the number is free to be given to another object. A device is what it was when its number was
// made. All may be called from any thread.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>

typedef unsigned int mach_port_t;
typedef int kern_return_t;
typedef unsigned int boolean_t;
typedef UInt32 IOOptionBits;
typedef char io_name_t[128];
typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;

enum : kern_return_t {
  KERN_SUCCESS = 0,
  KERN_INVALID_ARGUMENT = 4,
  KERN_RESOURCE_SHORTAGE = 6,  // out of memory
  KERN_INVALID_NAME = 15       // no object, or not one of this kind
};

constexpr mach_port_t kIOMasterPortDefault = 0;
constexpr char kIOServicePlane[] = "IOService";
enum : IOOptionBits { kIORegistryIterateRecursively = 1, kIORegistryIterateParents = 2 };

// What matches the device with the kernel's name `bsdName`, such as "sda1", for the next call.
// `masterPort` and `options` are 0. Null for a name that is not UTF-8, or when memory runs out.
CF_INSIDE CFMutableDictionaryRef IOBSDNameMatching(mach_port_t masterPort, IOOptionBits options,
                                                   char const* bsdName);

// The device that matches. Takes over the caller's reference on `matching`, in every case. 0 where
// there is none, for null, or when memory runs out.
CF_INSIDE io_service_t IOServiceGetMatchingService(mach_port_t masterPort,
                                                   CFDictionaryRef matching);

// Adds and takes off one reference. KERN_INVALID_NAME for a number that is no object.
CF_INSIDE kern_return_t IOObjectRetain(io_object_t object);
CF_INSIDE kern_return_t IOObjectRelease(io_object_t object);

// Whether the device is of the class: every block device is an "IOMedia", and one with a disc in it
// is an "IOCDMedia", "IODVDMedia" or "IOBDMedia" by the kind of that disc as udev knows it. False
// for other classes, for other devices and for what is no device.
CF_INSIDE boolean_t IOObjectConformsTo(io_object_t object, io_name_t const className);

// An iterator over the ancestors of the device, nearest first: the disk of a partition, the device
// on which a mapped one lies if it is a single one, and then what the kernel has above that. The
// plane is kIOServicePlane and `options` are kIORegistryIterateRecursively and
// kIORegistryIterateParents together, else KERN_INVALID_ARGUMENT, as for null. KERN_INVALID_NAME
// where `entry` is no device, KERN_RESOURCE_SHORTAGE when memory runs out.
CF_INSIDE kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry,
                                                      io_name_t const plane, IOOptionBits options,
                                                      io_iterator_t* iterator);

// The next device, or 0 at the end, for what is no iterator, or when memory runs out.
CF_INSIDE io_object_t IOIteratorNext(io_iterator_t iterator);

// A property of the device, or null where it has none of that name; `options` is 0. Block devices
// have the booleans "Whole" (a disk and no partition), "Removable" and "Ejectable" (of the disk, as
// kernel and udev tell). Disks have also the dictionary "Protocol Characteristics", and in that
// under "Physical Interconnect Location" a string: "RAM" for RAM disks, "File" for loop devices,
// "External" for what hangs on USB, FireWire or a slot outside, "Internal" for the rest.
CF_INSIDE CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                                    CFAllocatorRef allocator, IOOptionBits options);
