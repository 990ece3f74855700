// What a user can type.
#include "Binding/Neighbours.h"
#include "console/chat/ChatSession.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include <sys/stat.h>

namespace kv::console {
namespace {

constexpr std::size_t kMostBytes = 32'768;
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kOtherLetters = R"(!#$%&()+-:;<=.>?@[\]^_{}|~,)";

struct Command {
    std::string_view name;
    std::string_view arguments;
    std::string_view help;
    std::size_t needs;  // how many words
    void (ChatSession::*run)(std::string_view rest);
};

constexpr Command kCommands[] = {
    {"join", "ROOM", "enter a room, and leave the present one", 1, &ChatSession::join},
    {"leave", "", "leave the room", 0, &ChatSession::leave},
    {"who", "", "who is in the room", 0, &ChatSession::who},
    {"count", "", "how many are in the room", 0, &ChatSession::count},
    {"msg", "USER TEXT", "write to one user, online or not", 2, &ChatSession::message},
    {"file", "PATH", "send a file of up to 32,768 bytes, where a plain line would go", 1, &ChatSession::file},
    {"status", "USER", "whether a user is online", 1, &ChatSession::status},
    {"watch", "USER", "be told when a user comes or goes", 1, &ChatSession::watch},
    {"set", "KEY VALUE", "set an attribute of your own", 2, &ChatSession::set},
    {"attrs", "[USER]", "attributes of a user, or your own", 0, &ChatSession::attributes},
    {"room-attrs", "", "attributes of the room", 0, &ChatSession::roomAttributes},
    {"invite", "USER [TEXT]", "invite a user", 1, &ChatSession::invite},
    {"accept", "", "accept the invitation that came last", 0, &ChatSession::accept},
    {"refuse", "", "refuse it", 0, &ChatSession::refuse},
    {"cancel", "", "cancel your own invitation", 0, &ChatSession::cancel},
    {"help", "", "show this", 0, &ChatSession::help},
    {"quit", "", "log out and leave, as Ctrl-D does", 0, &ChatSession::quit},
};

std::vector<std::string_view> commandNames() {
    std::vector<std::string_view> names;
    for (auto const& command : kCommands) names.push_back(command.name);
    return names;
}

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

/// The first word, which is taken from the text along with the blanks behind it.
std::string takeWord(std::string_view& text) {
    auto const length = std::min(text.find_first_of(kBlanks), text.size());
    std::string word(text.substr(0, length));
    text = trimmed(text.substr(length));
    return word;
}

std::size_t countWords(std::string_view text) {
    std::size_t count = 0;
    for (; !text.empty(); ++count) takeWord(text);
    return count;
}

std::string tooLong(std::string_view what, std::uintmax_t size) {
    return std::string(what) + " may have 32,768 bytes; this one has " + std::to_string(size);
}

/// The file's bytes, or absent with the reason in `error`.
std::optional<KvBytes> readFile(std::string const& path, std::string& error) {
    struct stat about {};
    if (::stat(path.c_str(), &about) != 0 || !S_ISREG(about.st_mode)) {
        error = "this is not a file: " + path;
        return std::nullopt;
    }
    if (static_cast<std::uintmax_t>(about.st_size) > kMostBytes) {
        error = tooLong("a file", static_cast<std::uintmax_t>(about.st_size));
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    KvBytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file.is_open() || file.bad()) {
        error = "cannot read " + path;
        return std::nullopt;
    }
    return bytes;
}

}  // namespace

void ChatSession::carryOut(std::string const& line) {
    auto rest = trimmed(line);
    if (rest.empty()) return;
    if (rest.front() != '/') return send(std::make_shared<KvPimMessage>(line));
    auto const name = takeWord(rest).substr(1);
    auto const* const command = std::ranges::find(kCommands, name, &Command::name);
    if (command == std::end(kCommands)) {
        return warn("there is no /" + name + binding::didYouMean(name, commandNames()) + "; /help shows what there is");
    }
    if (countWords(rest) < command->needs) return warn("/" + name + " wants " + std::string(command->arguments));
    (this->*command->run)(rest);
}

std::vector<std::string> ChatSession::completions(std::string_view before) const {
    std::vector<std::string> list;
    auto const end = before.find_first_of(kBlanks);
    if (end == std::string_view::npos) {
        if (!before.starts_with('/')) return list;
        for (auto const name : commandNames()) list.push_back("/" + std::string(name));
        return list;
    }
    auto const* const command = std::ranges::find(kCommands, before.substr(1, end - 1), &Command::name);
    bool const isFirst =
        before.find_first_of(kBlanks, before.find_first_not_of(kBlanks, end)) == std::string_view::npos;
    if (!before.starts_with('/') || command == std::end(kCommands) || !isFirst) return list;
    if (command->arguments.starts_with("ROOM")) list.assign(rooms_.begin(), rooms_.end());
    if (command->arguments.find("USER") <= 1) list.assign(users_.begin(), users_.end());
    return list;
}

// ---- Rooms

void ChatSession::join(std::string_view rest) {
    std::string const roomId(rest);
    if (room_ && room_->channelId() == roomId) return notice("you are in " + roomId);
    leaveRoom();
    auto const room = client_->createChannelWithId(roomId, roomDelegate_);
    if (!room) {
        return warn("this is no valid room name: 1 to 64 ASCII letters, digits, blanks and " +
                    std::string(kOtherLetters));
    }
    rooms_.insert(roomId);
    room_ = room;
    room->joinWithCompletion(whenAnswered([this, room](std::int64_t code) {
        if (code == 0) {
            notice("you are in " + room->channelId());
            if (room_ == room) terminal_.setPrompt(room->channelId() + "> ");
            return;
        }
        warn("entering " + room->channelId(), KvPimJoinChannelErrorCode(code));
        if (room_ == room) room_ = nullptr;
    }));
}

void ChatSession::leave(std::string_view) {
    if (isInRoom()) leaveRoom();
}

void ChatSession::leaveRoom() {
    if (!room_) return;
    auto const room = std::exchange(room_, nullptr);
    terminal_.setPrompt("> ");
    room->leaveWithCompletion(whenDone<KvPimLeaveChannelErrorCode>(
        "leaving " + room->channelId(), [this, room] { notice("you have left " + room->channelId()); }));
    client_->destroyChannelWithId(room->channelId());
}

void ChatSession::who(std::string_view) {
    if (!isInRoom()) return;
    room_->getMembersWithCompletion(
        whenAnswered([this](std::optional<std::vector<KvPimMember>> const& members, std::int64_t code) {
            if (code != 0) return warn("members", KvPimChannelMembersErrorCode(code));
            std::string names;
            for (auto const& member : *members) {
                names += (names.empty() ? "" : ", ") + member.userId;
                users_.insert(member.userId);
            }
            notice("here: " + names);
        }));
}

void ChatSession::count(std::string_view) {
    if (!isInRoom()) return;
    client_->getChannelMemberCount(
        {room_->channelId()},
        whenAnswered([this](std::optional<std::vector<KvChannelMemberCount>> const& counts, std::int64_t code) {
            if (code != 0) return warn("count", KvPimMemberCountErrorCode(code));
            for (auto const& one : *counts) notice(one.channelId + " has " + std::to_string(one.count) + " members");
        }));
}

void ChatSession::roomAttributes(std::string_view) {
    if (!isInRoom()) return;
    client_->getChannelAttributes(
        room_->channelId(),
        whenAnswered([this, roomId = room_->channelId()](std::optional<std::vector<KvPimAttribute>> const& list,
                                                         std::int64_t code) {
            if (code != 0) return warn("attributes", KvPimChannelAttributesErrorCode(code));
            showAttributes(roomId, *list);
        }));
}

bool ChatSession::isInRoom() {
    if (!room_) warn("you are in no room; /join ROOM");
    return room_ != nullptr;
}

// ---- Messages

void ChatSession::message(std::string_view rest) {
    lastPeer_ = takeWord(rest);
    users_.insert(lastPeer_);
    sendToPeer(std::make_shared<KvPimMessage>(std::string(rest)), lastPeer_);
}

void ChatSession::file(std::string_view rest) {
    std::string const path(rest);
    std::string error;
    auto bytes = readFile(path, error);
    if (!bytes) return warn(error);
    auto const message = std::make_shared<KvPimRawMessage>(makeData(*std::move(bytes)));
    message->text = path.substr(path.find_last_of('/') + 1);
    send(message);
}

void ChatSession::send(std::shared_ptr<KvPimMessage const> message) {
    if (!room_ && lastPeer_.empty()) return warn("to whom? /join ROOM or /msg USER TEXT first");
    if (!room_) return sendToPeer(std::move(message), lastPeer_);
    if (message->text->size() > kMostBytes) return warn(tooLong("a message", message->text->size()));
    room_->sendMessage(std::move(message), std::nullopt, whenDone<KvPimChannelMessageErrorCode>("message", [] {}));
}

void ChatSession::sendToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId) {
    if (message->text->size() > kMostBytes) return warn(tooLong("a message", message->text->size()));
    client_->sendMessageToPeer(std::move(message), peerId, KvPimSendMessageOptions{.enableOfflineMessaging = true},
                               whenDone<KvPimPeerMessageErrorCode>("message to " + peerId, [] {}));
}

// ---- Users

void ChatSession::status(std::string_view rest) {
    client_->queryPeersOnlineStatus(
        {std::string(rest)},
        whenAnswered([this](std::optional<std::vector<KvPimPeerOnlineStatus>> const& statuses, std::int64_t code) {
            if (code != 0) return warn("status", KvPimPeersErrorCode(code));
            for (auto const& one : *statuses) notice(one.peerId + (one.isOnline ? " is online" : " is offline"));
        }));
}

void ChatSession::watch(std::string_view rest) {
    std::string const peerId(rest);
    users_.insert(peerId);
    client_->subscribePeersOnlineStatus({peerId}, whenDone<KvPimPeersErrorCode>("watching " + peerId, [this, peerId] {
                                            notice("you watch " + peerId);
                                        }));
}

void ChatSession::set(std::string_view rest) {
    auto const key = takeWord(rest);
    std::string const value(rest);
    client_->addOrUpdateLocalUserAttributes(
        {{key, value}}, whenDone<KvPimLocalUserAttributesErrorCode>(
                            "attribute", [this, key, value] { notice("you: " + key + " = " + value); }));
}

void ChatSession::attributes(std::string_view rest) {
    client_->getUserAttributes(rest.empty() ? options_.userId : std::string(rest),
                               whenAnswered([this](std::optional<std::vector<KvPimAttribute>> const& list,
                                                   std::string const& userId, std::int64_t code) {
                                   if (code != 0)
                                       return warn("attributes of " + userId, KvPimUserAttributesErrorCode(code));
                                   showAttributes(userId, *list);
                               }));
}

// ---- Invitations

void ChatSession::invite(std::string_view rest) {
    auto const invitee = takeWord(rest);
    outgoing_ = KvPimInvitation::initWithInviter(options_.userId, invitee);
    outgoing_->requestInfo = rest;
    client_->getPimInvitationKit()->sendInvitation(
        outgoing_, whenDone<KvPimInvitationErrorCode>("inviting " + invitee,
                                                      [this, invitee] { notice("you invite " + invitee); }));
}

void ChatSession::accept(std::string_view) {
    if (!incoming_) return warn("nobody has invited you");
    client_->getPimInvitationKit()->acceptInvitation(
        incoming_, whenDone<KvPimInvitationErrorCode>("accepting", [this] { notice("accepted"); }));
}

void ChatSession::refuse(std::string_view) {
    if (!incoming_) return warn("nobody has invited you");
    client_->getPimInvitationKit()->refuseInvitation(
        incoming_, whenDone<KvPimInvitationErrorCode>("refusing", [this] { notice("refused"); }));
}

void ChatSession::cancel(std::string_view) {
    if (!outgoing_) return warn("you have invited nobody");
    client_->getPimInvitationKit()->cancelInvitation(
        outgoing_, whenDone<KvPimInvitationErrorCode>("canceling", [this] { notice("canceled"); }));
}

// ---- The rest

void ChatSession::help(std::string_view) {
    for (auto const& command : kCommands) {
        std::string usage = "/" + std::string(command.name) + " " + std::string(command.arguments);
        usage.resize(std::max<std::size_t>(usage.size() + 1, 20), ' ');
        terminal_.print({{Style::name, usage}, {Style::plain, command.help}});
    }
    notice("any other line goes to the room, or outside of a room to the user of the last /msg");
}

void ChatSession::quit(std::string_view) { terminal_.stop(); }

}  // namespace kv::console
