// The format object map of one component: which of the component's loadable objects turns
// which input format into which output format, and at which rates and channel counts.
//
// Formats are FourCC codes; kAnyFourCC (0xFFFFFFFF) stands for any format, and the output
// code kSameFourCC ("same") is resolved against the input when an item is added. The map is
// filled while component information is loaded, then only queried (by the component manager
// and by RComponentInfoMatch), so it has no lock.
//
// Besides the item list, the map keeps two name indexes, by input and by output format, that
// only the three-argument set() fills and only get() reads. They are independent of the items.
#ifndef CM_CMFORMATOBJECTMAP_H
#define CM_CMFORMATOBJECTMAP_H

#include <zr/CBuffer.h>
#include <zr/CData.h>
#include <zr/RPtr.h>
#include <zr/ZRTypes.h>
#include <zrbase/object_refcount.h>

#include <map>
#include <vector>

namespace ZR {
namespace CM {

// In an output position: "the same format as the input".
constexpr unsigned int kSameFourCC = fourcc("same");

class ComponentFormatItem {
public:
    ComponentFormatItem() = default;
    ComponentFormatItem(const ComponentFormatItem& other) = default;
    ComponentFormatItem& operator=(const ComponentFormatItem& other) = default;
    virtual ~ComponentFormatItem();

    unsigned int inFormat = 0;
    unsigned int outFormat = 0;
    std::vector<unsigned int> rates;     // kAnyFourCC: any rate
    std::vector<unsigned int> channels;  // kAnyFourCC: any channel count
    RString name;                        // file name of the object below the platform directory
};

class RFormatObjectMap : public zrbase::object_refcount {
public:
    RFormatObjectMap() = default;
    ~RFormatObjectMap() override;

    // Appends an item; an out of kSameFourCC becomes in. Duplicates are kept.
    void set(unsigned int in, unsigned int out, const RString& name,
             const std::vector<unsigned int>& rates, const std::vector<unsigned int>& channels);
    // Records name under (in, out) in both indexes, replacing what was there.
    void set(unsigned int in, unsigned int out, const RString& name);
    // The name recorded for (in, out), falling back to the nearest recorded pair: the
    // smallest output of the same input, else the smallest input of the same output, else
    // the first pair of all. Empty when nothing was recorded.
    RString get(unsigned int in, unsigned int out) const;

    // The first item for a request: an item with an any input serves every request;
    // otherwise in and out must each be any or equal to the item's. A found item belongs to
    // the map and stays valid until the next set(). A miss gives a new default item
    // (formats 0, no rates or channels, empty name) that the caller owns and deletes; to
    // tell the two apart, or to avoid the allocation, use findFormatItem().
    const ComponentFormatItem* getFormatItem(unsigned int in, unsigned int out) const;
    // The item getFormatItem() finds, or null on a miss.
    const ComponentFormatItem* findFormatItem(unsigned int in, unsigned int out) const;
    // Whether some item serves (in, out). Stricter than getFormatItem: an item with an any
    // input serves only a request whose input is any too.
    bool supportsFormats(unsigned int in, unsigned int out) const;
    // Append the inputs of the items producing out (all items for any), in item order with
    // duplicates, and return the list's new size; the outputs likewise.
    int supportedInFormats(std::vector<unsigned int>& list, unsigned int out) const;
    int supportedOutFormats(std::vector<unsigned int>& list, unsigned int in) const;

    // The map is not shown anywhere; kept so that callers may ask.
    void print() const;

    const std::vector<ComponentFormatItem>& getItems() const { return mItems; }

private:
    friend CData& operator>>(CData& data, RFormatObjectMap& map);

    using NameIndex = std::map<unsigned int, std::map<unsigned int, RPtr<RString>>>;

    std::vector<ComponentFormatItem> mItems;
    NameIndex mByInput;
    NameIndex mByOutput;
};

// An item travels as in, out, the rate count, each rate and the name; its channels do not
// travel and read back empty. A map travels as its item count and its items; the indexes do
// not travel. Reading a map appends to its items, stopping at the first item the stream
// cannot complete (data.failed() then tells).
CData& operator<<(CData& data, const ComponentFormatItem& item);
CData& operator>>(CData& data, ComponentFormatItem& item);
CData& operator<<(CData& data, const RFormatObjectMap& map);
CData& operator>>(CData& data, RFormatObjectMap& map);

}  // namespace CM
}  // namespace ZR

#endif
