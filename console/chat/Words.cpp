#include "console/chat/Words.h"

#include "Classes/Model/KvPimErrorCodes.h"

namespace kv::console {
namespace {

constexpr std::string_view kNoAnswer = "no answer from the service";
constexpr std::string_view kTooMany = "too many requests at once";
constexpr std::string_view kRefused = "the service refused";
constexpr std::string_view kNoUserId =
    "this is no valid user id: 1 to 64 ASCII letters, digits, blanks and !#$%&()+-:;<=.>?@[\\]^_{}|~,";
constexpr std::string_view kNotInRoom = "you are not in this room";

constexpr Word kLogin[] = {{2, "this application is forbidden"},
                           {3, kNoUserId},
                           {4, "the application id is invalid"},
                           {5, "the token is invalid: the service wants 32 characters without blanks, and knows them"},
                           {6, "the token has expired"},
                           {7, "you are not authorised"},
                           {8, "already logged in"},
                           {9, "no service was reached"}};
constexpr Word kJoin[] = {{1, kRefused},
                          {3, "this is no valid room name"},
                          {4, kNoAnswer},
                          {5, "you are in too many rooms"},
                          {6, "the room is full"}};
constexpr Word kLeave[] = {{1, "the service refused or did not answer"}, {3, kNotInRoom}};
constexpr Word kMembers[] = {{1, kRefused}, {3, kNoAnswer}, {4, kTooMany}, {5, kNotInRoom}};
constexpr Word kRoomMessage[] = {{1, kRefused}, {2, kNoAnswer}, {3, kTooMany}, {4, "it is too long"}, {5, kNotInRoom}};
constexpr Word kPeerMessage[] = {{1, kRefused},        {2, kNoAnswer}, {3, "this user is not there"},
                                 {4, kNoUserId},       {5, kTooMany},  {6, "too many messages are kept for this user"},
                                 {7, "it is too long"}};
constexpr Word kAttribute[] = {{2, kRefused}, {3, "a name is not valid"},  {4, "too many or too long"},
                               {5, kTooMany}, {6, "this user is unknown"}, {7, kNoAnswer}};
constexpr Word kCount[] = {
    {1, kRefused}, {2, "this is no valid room name"}, {3, kTooMany}, {4, kNoAnswer}, {5, "too many rooms"}};
constexpr Word kStatus[] = {
    {1, kRefused}, {2, kNoUserId}, {4, kNoAnswer}, {5, kTooMany}, {6, "you watch too many users"}};
constexpr Word kInvitation[] = {{1, kNoAnswer},
                                {2, "the text is too long"},
                                {3, "this user is unknown"},
                                {4, "this user is not there"},
                                {5, "it is not yours to do this"}};

}  // namespace

Words const kLoginWords = kLogin;
Words const kJoinWords = kJoin;
Words const kLeaveWords = kLeave;
Words const kMembersWords = kMembers;
Words const kRoomMessageWords = kRoomMessage;
Words const kPeerMessageWords = kPeerMessage;
Words const kAttributeWords = kAttribute;
Words const kCountWords = kCount;
Words const kStatusWords = kStatus;
Words const kInvitationWords = kInvitation;

std::string explain(Words words, std::int64_t code) {
    if (code == KvPimErrorNotLogin) return "you are not logged in";
    for (auto const& word : words) {
        if (word.code == code) return std::string(word.text);
    }
    return "error " + std::to_string(code);
}

}  // namespace kv::console
