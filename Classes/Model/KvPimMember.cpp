#include "Classes/Model/KvPimMember.h"

#include "Classes/Catagory/KvJson.h"

namespace kv {

KvPimMember KvPimMember::initWithDict(boost::json::object const* dictionary) {
    return {stringOf(dictionary, "userId").value_or(""), stringOf(dictionary, "channelId").value_or("")};
}

std::vector<KvPimMember> KvPimMember::membersFromArray(boost::json::array const& dictionaries) {
    std::vector<KvPimMember> members;
    members.reserve(dictionaries.size());
    for (auto const& dictionary : dictionaries) members.push_back(initWithDict(dictionary.if_object()));
    return members;
}

}  // namespace kv
