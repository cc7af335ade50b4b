// Programs are compiled against the order of the virtual operations, so it is pinned here.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/collections/CUDictionary.h"
#include "QuillmereLib/collections/CUVector.h"
#include "QuillmereLib/core/CUEventWaitHandle.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/logging/CUPerformanceLogger.h"
#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "QuillmereLib/values/CUPerformanceCounter.h"
#include "QuillmereLib/values/CUUUID.h"
#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"

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

}  // namespace

TEST(VirtualTable, HasTheGivenOrder) {
  using Object = CUObject;
  EXPECT_EQ(Slots(&Object::Description,
                  static_cast<Object& (Object::*)(Object const&)>(&Object::operator=)),
            "2 3");
  EXPECT_EQ(Slots(&CULockAbstract::Lock, &CULockAbstract::Unlock), "2 3");
  EXPECT_EQ(Slots(&CURecursiveLock::Lock, &CURecursiveLock::Unlock), "2 3");
  EXPECT_EQ(Slots(&CUWaitHandle::WaitOne), "2");
  EXPECT_EQ(Slots(&CUMutex::WaitOne, &CUMutex::ReleaseMutex), "2 3");
  EXPECT_EQ(Slots(&CUEventWaitHandle::WaitOne, &CUEventWaitHandle::Reset, &CUEventWaitHandle::Set),
            "2 3 4");
  EXPECT_EQ(Slots(&CUArray::Description), "2");
  EXPECT_EQ(Slots(&CUSortDescriptor::CompareObject), "4");
  EXPECT_EQ(Slots(&CUDictionary::Description), "2");
  EXPECT_EQ(Slots(&CUVector<int>::Description), "2");
  EXPECT_EQ(Slots(&CUPerformanceCounter::Description), "2");
}

TEST(VirtualTable, OfStreamsHasTheGivenOrder) {
  using Stream = CUStream;
  EXPECT_EQ(Slots(&Stream::CanRead, &Stream::CanWrite, &Stream::CanSeek, &Stream::Read,
                  &Stream::Write, &Stream::Seek, &Stream::WriteCFData,
                  static_cast<Stream& (Stream::*)(Stream const&)>(&Stream::operator=)),
            "4 5 6 7 8 9 10 11");
  EXPECT_EQ(Slots(&CUMemoryStream::CanRead, &CUMemoryStream::Read), "4 7");
  EXPECT_EQ(Slots(&CUFileStream::CanSeek, &CUFileStream::Seek), "6 9");
}

TEST(VirtualTable, OfStringsHasTheGivenOrder) {
  using Text = CUStringMac;
  EXPECT_EQ(
      Slots(&Text::Description, &Text::GetString, &Text::PathAppend, &Text::PathRemoveLastComponent,
            &Text::PathGetFileName, &Text::PathGetFileNameNoExtension, &Text::PathGetExtension,
            &Text::PathGetLastComponent, &Text::PathComponents, &Text::Equals, &Text::Length,
            &Text::CountOfChars, &Text::operator+,
            static_cast<Text& (Text::*)(Text const&)>(&Text::operator=), &Text::operator==,
            &Text::operator<, &Text::operator char const*, &Text::operator __CFString const*),
      "2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19");
}

TEST(VirtualTable, OfLogRecordsHasTheGivenOrder) {
  EXPECT_EQ(Slots(&LogDataBase::toRowData, &ExportLogData::toRowData), "2 2");
}

TEST(VirtualTable, OfIdentifiersHasTheGivenOrder) {
  using Id = CUUUID;
  EXPECT_EQ(Slots(&Id::Description, &Id::operator __CFUUID const*, &Id::operator CFUUIDBytes,
                  static_cast<bool (Id::*)(Id const&) const>(&Id::operator==),
                  static_cast<bool (Id::*)(__CFUUID const*) const>(&Id::operator==),
                  static_cast<bool (Id::*)(CFUUIDBytes const&) const>(&Id::operator==),
                  static_cast<Id& (Id::*)(Id const&)>(&Id::operator=), &Id::GetBytes,
                  &Id::GetUUIDRef, &Id::SetUUIDRef, &Id::GetUUIDBytes, &Id::SetUUIDBytes),
            "2 4 5 6 7 8 9 10 11 12 13 14");
}

TEST(VirtualTable, OfXmlNodesHasTheGivenOrder) {
  using Node = CUXmlDomNode;
  EXPECT_EQ(Slots(&Node::Description, &Node::GetNodeName, &Node::GetNodeType, &Node::GetAttribute,
                  &Node::GetAttributes, &Node::GetNodeValue, &Node::SetNodeName,
                  &Node::SetAttribute, &Node::SetNodeValue, &Node::GetChildNodes),
            "2 4 5 6 7 8 9 10 11 12");
  EXPECT_EQ(Slots(&CUXmlDomElementNode::SetNodeValue, &CUXmlDomTextNode::SetNodeName), "11 9");
  EXPECT_EQ(Slots(&CUXmlDomDocumentNode::LoadXml, &CUXmlDomDocumentNode::WriteXml), "13 14");
}
