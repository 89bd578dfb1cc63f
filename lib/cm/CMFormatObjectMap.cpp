#include <cm/CMFormatObjectMap.h>

namespace ZR {
namespace CM {

namespace {

bool matches(unsigned int wanted, unsigned int offered) {
    return wanted == kAnyFourCC || wanted == offered;
}

bool serves(const ComponentFormatItem& item, unsigned int in, unsigned int out) {
    return matches(in, item.inFormat) && matches(out, item.outFormat);
}

// The name under key, or else under the smallest key of the inner map.
template <typename Inner>
RString nameOrFirst(const Inner& inner, unsigned int key) {
    const auto found = inner.find(key);
    return *(found != inner.end() ? found->second : inner.begin()->second);
}

}  // namespace

ComponentFormatItem::~ComponentFormatItem() = default;

RFormatObjectMap::~RFormatObjectMap() = default;

void RFormatObjectMap::set(unsigned int in, unsigned int out, const RString& name,
                           const std::vector<unsigned int>& rates,
                           const std::vector<unsigned int>& channels) {
    ComponentFormatItem item;
    item.inFormat = in;
    item.outFormat = out == kSameFourCC ? in : out;
    item.rates = rates;
    item.channels = channels;
    item.name = name;
    mItems.push_back(std::move(item));
}

void RFormatObjectMap::set(unsigned int in, unsigned int out, const RString& name) {
    const RPtr<RString> shared(new RString(name));
    mByInput[in][out] = shared;
    mByOutput[out][in] = shared;
}

RString RFormatObjectMap::get(unsigned int in, unsigned int out) const {
    // Inner maps are never empty: both indexes only ever gain entries in pairs.
    if (mByInput.empty()) {
        return RString();
    }
    const auto byInput = mByInput.find(in);
    if (byInput != mByInput.end()) {
        return nameOrFirst(byInput->second, out);
    }
    const auto byOutput = mByOutput.find(out);
    if (byOutput == mByOutput.end()) {
        return nameOrFirst(mByInput.begin()->second, out);
    }
    return nameOrFirst(byOutput->second, in);
}

const ComponentFormatItem* RFormatObjectMap::findFormatItem(unsigned int in,
                                                            unsigned int out) const {
    for (const ComponentFormatItem& item : mItems) {
        if (item.inFormat == kAnyFourCC || serves(item, in, out)) {
            return &item;
        }
    }
    return nullptr;
}

const ComponentFormatItem* RFormatObjectMap::getFormatItem(unsigned int in,
                                                           unsigned int out) const {
    const ComponentFormatItem* found = findFormatItem(in, out);
    return found ? found : new ComponentFormatItem();
}

bool RFormatObjectMap::supportsFormats(unsigned int in, unsigned int out) const {
    for (const ComponentFormatItem& item : mItems) {
        if (serves(item, in, out)) {
            return true;
        }
    }
    return false;
}

int RFormatObjectMap::supportedInFormats(std::vector<unsigned int>& list, unsigned int out) const {
    for (const ComponentFormatItem& item : mItems) {
        if (out == kAnyFourCC || item.outFormat == out) {
            list.push_back(item.inFormat);
        }
    }
    return static_cast<int>(list.size());
}

int RFormatObjectMap::supportedOutFormats(std::vector<unsigned int>& list, unsigned int in) const {
    for (const ComponentFormatItem& item : mItems) {
        if (in == kAnyFourCC || item.inFormat == in) {
            list.push_back(item.outFormat);
        }
    }
    return static_cast<int>(list.size());
}

void RFormatObjectMap::print() const {}

CData& operator<<(CData& data, const ComponentFormatItem& item) {
    return data << item.inFormat << item.outFormat << item.rates << item.name;
}

CData& operator>>(CData& data, ComponentFormatItem& item) {
    item.channels.clear();
    return data >> item.inFormat >> item.outFormat >> item.rates >> item.name;
}

CData& operator<<(CData& data, const RFormatObjectMap& map) {
    return data << map.getItems();
}

// An item needs at least twelve bytes of stream, so a corrupt count ends the loop at the end
// of the stream.
CData& operator>>(CData& data, RFormatObjectMap& map) {
    unsigned int count = 0;
    data >> count;
    for (unsigned int i = 0; i < count && !data.failed(); ++i) {
        ComponentFormatItem item;
        data >> item;
        if (data.failed()) {
            break;
        }
        map.mItems.push_back(std::move(item));
    }
    return data;
}

}  // namespace CM
}  // namespace ZR
