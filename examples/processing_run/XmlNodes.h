#pragma once

// What the job and the manifest of a run have in common as documents.

#include <QuillmereLib/QuillmereLib.h>

#include <string>

// Null where the file cannot be read or is no document that the library loads.
CUSharedPtr<CUXmlDomDocumentNode> LoadDocument(CUSharedPtr<CUStringMac> path);

// The element at the top, or null where it has another name.
CUSharedPtr<CUXmlDomNode> RootElement(CUXmlDomDocumentNode& document, std::string const& name);

// Null where no node stands there.
CUSharedPtr<CUXmlDomNode> NodeAt(CUArray& nodes, unsigned int index);

// `text` as it stands between the quotes of an attribute: documents carry it there verbatim.
std::string AttributeText(std::string const& text);

// Sets an attribute to the form that AttributeText gives to the text, and gives one as it stands;
// empty where it is missing.
void SetText(CUXmlDomNode& element, char const* name, std::string const& text);
std::string TextOf(CUXmlDomNode& element, char const* name);
