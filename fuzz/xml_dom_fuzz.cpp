// The XML stand-in: any text either loads into a tree that every reader can
// walk, or fails to load; nothing in between crashes or recurses without end.
#include "fuzz_machine.h"
#include "platform/host.h"
#include "platform/sim/xml_dom.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpmfuzz::openMachine();
    static const platform::sim::CodePage westernEuropean;
    platform::Object doc(platform::sim::createDomDocument(platform::files(), westernEuropean));
    try {
        if (!doc.call("loadXML", kpmfuzz::text(data, size)).toBool()) return 0;
        for (const platform::Variant& item : doc.call("getElementsByTagName", "*").toObject().items()) {
            platform::Object node = item.toObject();
            node.get("nodeName").toString();
            node.get("text").toString();
            for (const platform::Variant& a : node.obj("attributes").items()) a.toObject().get("nodeValue");
        }
        doc.call("selectNodes", "//upcls");
        doc.get("xml").toString();
    } catch (const platform::ComError&) {
        // A reader's error on a strange but loaded tree is an answer, not a fault.
    }
    return 0;
}
