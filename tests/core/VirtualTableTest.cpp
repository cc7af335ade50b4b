// Programs are compiled against the order of the virtual operations, so it is pinned here.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "QuillmereLib/QuillmereLib.h"

namespace {

// The slot by which an operation is called. The two slots of a destructor (of the object alone, and
// with its memory) make it count from 2 where the destructor comes first.
template <class Class, class Function>
std::string Slot(Function Class::*operation) {
  std::ptrdiff_t offset = 0;
  static_assert(sizeof operation == 2 * sizeof offset);
  std::memcpy(&offset, &operation, sizeof offset);
  return std::to_string((offset & ~std::ptrdiff_t{1}) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

template <class... Operations>
std::string Slots(Operations... operations) {
  std::string slots;
  ((slots += (slots.empty() ? "" : " ") + Slot(operations)), ...);
  return slots;
}

// The assignment of a class, which has a slot.
template <class Class>
auto Assignment() {
  return static_cast<Class& (Class::*)(Class const&)>(&Class::operator=);
}

}  // namespace

TEST(VirtualTable, HasTheGivenOrder) {
  EXPECT_EQ(Slots(&CUObject::Description, Assignment<CUObject>()), "2 3");
  EXPECT_EQ(Slots(&CULockAbstract::Lock, &CULockAbstract::Unlock), "2 3");
  EXPECT_EQ(Slots(&CURecursiveLock::Lock, &CURecursiveLock::Unlock), "2 3");
  EXPECT_EQ(Slots(&CUMutex::WaitOne, &CUMutex::ReleaseMutex), "2 3");
  EXPECT_EQ(Slots(&CUEventWaitHandle::WaitOne, &CUEventWaitHandle::Reset, &CUEventWaitHandle::Set),
            "2 3 4");
  EXPECT_EQ(Slots(&CUWaitHandle::WaitOne, &CUArray::Description, &CUSortDescriptor::CompareObject,
                  &CUDictionary::Description, &CUVector<int>::Description,
                  &CUPerformanceCounter::Description, &LogDataBase::toRowData),
            "2 2 4 2 2 2 2");

  using Stream = CUStream;
  EXPECT_EQ(
      Slots(&Stream::CanRead, &Stream::CanWrite, &Stream::CanSeek, &Stream::Read, &Stream::Write,
            &Stream::Seek, &Stream::WriteCFData, Assignment<Stream>(), &CUFileStream::Seek),
      "4 5 6 7 8 9 10 11 9");
  using Text = CUStringMac;
  EXPECT_EQ(
      Slots(&Text::Description, &Text::GetString, &Text::PathAppend, &Text::PathRemoveLastComponent,
            &Text::PathGetFileName, &Text::PathGetFileNameNoExtension, &Text::PathGetExtension,
            &Text::PathGetLastComponent, &Text::PathComponents, &Text::Equals, &Text::Length,
            &Text::CountOfChars, &Text::operator+, Assignment<Text>(), &Text::operator==,
            &Text::operator<, &Text::operator char const*, &Text::operator __CFString const*),
      "2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19");
  using Id = CUUUID;
  EXPECT_EQ(
      Slots(&Id::Description, &Id::operator __CFUUID const*, &Id::operator CFUUIDBytes,
            static_cast<bool (Id::*)(Id const&) const>(&Id::operator==),
            static_cast<bool (Id::*)(__CFUUID const*) const>(&Id::operator==),
            static_cast<bool (Id::*)(CFUUIDBytes const&) const>(&Id::operator==), Assignment<Id>(),
            &Id::GetBytes, &Id::GetUUIDRef, &Id::SetUUIDRef, &Id::GetUUIDBytes, &Id::SetUUIDBytes),
      "2 4 5 6 7 8 9 10 11 12 13 14");
  using Node = CUXmlDomNode;
  EXPECT_EQ(Slots(&Node::Description, &Node::GetNodeName, &Node::GetNodeType, &Node::GetAttribute,
                  &Node::GetAttributes, &Node::GetNodeValue, &Node::SetNodeName,
                  &Node::SetAttribute, &Node::SetNodeValue, &Node::GetChildNodes,
                  &CUXmlDomDocumentNode::LoadXml, &CUXmlDomDocumentNode::WriteXml),
            "2 4 5 6 7 8 9 10 11 12 13 14");
}
