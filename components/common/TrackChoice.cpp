#include "common/TrackChoice.h"

#include <cm/CMComponentStatus.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace cmcomponents {

namespace {

bool parseTrackList(const std::string& text, std::vector<int>& numbers) {
    numbers.clear();
    std::istringstream items(text);
    std::string item;
    while (std::getline(items, item, ',')) {
        char* end = nullptr;
        const long number = std::strtol(item.c_str(), &end, 10);
        if (item.empty() || *end != '\0' || number < 1 || number > 100000) {
            return false;
        }
        numbers.push_back(static_cast<int>(number));
    }
    return !numbers.empty();
}

}  // namespace

bool isTrackList(const std::string& text) {
    std::vector<int> numbers;
    return parseTrackList(text, numbers);
}

int chooseTracks(const std::string& setting, std::size_t tracks, std::size_t queues,
                 const std::string& who, std::vector<int>& trackOfQueue, std::string& why) {
    trackOfQueue.assign(queues, -1);
    if (setting.empty()) {
        for (std::size_t i = 0; i < queues && i < tracks; ++i) {
            trackOfQueue[i] = static_cast<int>(i);
        }
        return ZR::CM::kResultOK;
    }
    std::vector<int> numbers;
    if (!parseTrackList(setting, numbers)) {
        why = who + ": tracks \"" + setting + "\" is not a list of track numbers";
        return ZR::CM::kResultSettingParseFailed;
    }
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const int number = numbers[i];
        const bool absent = static_cast<std::size_t>(number) > tracks;
        if (absent || std::count(numbers.begin(), numbers.end(), number) > 1) {
            why = who + ": tracks names track " + std::to_string(number) +
                  (absent ? ", and the source has " + std::to_string(tracks) : " twice");
            return ZR::CM::kResultSettingParseFailed;
        }
        if (i < queues) {
            trackOfQueue[i] = number - 1;
        }
    }
    return ZR::CM::kResultOK;
}

}  // namespace cmcomponents
