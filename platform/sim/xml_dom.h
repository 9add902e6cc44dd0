// The simulated machine's "MSXML2.DOMDocument": an MSXML 3.0-like DOM over
// pugixml, reached only through late binding (platform::Object).
//
// What it keeps of MSXML's node model, because the program's readers depend on it:
//  - Load(path) reads a Windows path through the machine's FileSystem, loadXML(text)
//    parses a text; both return True/False and a failed parse leaves an empty
//    document (childNodes.length = 0), never an exception;
//  - whitespace-only text is dropped (preserveWhiteSpace False); comments, processing
//    instructions and the <?xml ?> declaration are child nodes like elements;
//  - collections (childNodes, attributes, getElementsByTagName, selectNodes) have
//    length, item(i) and For Each; item outside the collection is Nothing, and any
//    member read on Nothing raises error 91;
//  - attributes are in document order; non-elements have no attributes (Nothing),
//    except the declaration, whose pseudo-attributes MSXML also exposes;
//  - nodeValue is Null for elements and the document; nodeTypedValue and text of an
//    element are its concatenated descendant text (two element children in a row
//    joined by a blank), without leading and trailing white space unless
//    preserveWhiteSpace or xml:space="preserve" says otherwise; an attribute's
//    nodeValue and nodeTypedValue are its value as written;
//  - selectSingleNode / selectNodes take XPath (Nothing / empty list when nothing
//    matches; a malformed expression raises an error).
// Texts: a file is decoded by its byte order mark or declared encoding, and the
// program's strings go in and come out in the machine's code page (xml_text.h).
#pragma once

#include <memory>

#include "platform/automation.h"
#include "platform/files.h"
#include "platform/sim/sim_code_page.h"

namespace platform::sim {

// A new, empty document. `files` and `codePage` must outlive it (Load reads
// through the files; the program's text is in the code page).
std::shared_ptr<Dispatch> createDomDocument(FileSystem& files, const CodePage& codePage);

// MSXML's nodeType numbers.
namespace xmlnode {
constexpr int Element = 1;
constexpr int Attribute = 2;
constexpr int Text = 3;
constexpr int CData = 4;
constexpr int ProcessingInstruction = 7;
constexpr int Comment = 8;
constexpr int Document = 9;
}  // namespace xmlnode

}  // namespace platform::sim
