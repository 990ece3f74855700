// One session of two users that asks for every operation, with each answer and each event in its exact shape.
#include "console/Programs.h"
#include "support/Service.h"

#include <map>

#include <gtest/gtest.h>

namespace kv::test {
namespace {

struct Step {
    char const* who;
    char const* line;  // sent by `who`
    std::vector<std::pair<char const*, char const*>> printed;
};

// "*" stands for any text: times, and what depends on the build.
std::vector<Step> const kSession = {
    // Without a login
    {"alice",
     R"({"op":"state","id":{"any":["value"]}})",
     {{"alice", R"({"event":"ready"})"},
      {"alice",
       R"({"id":{"any":["value"]},"op":"state","result":{"login":false,"state":0,"userId":"","appId":"demo"}})"}}},
    {"alice", R"({"op":"joinWithCompletion","id":1,"channelId":"garden"})", {{"alice", R"({"error":"*","id":1})"}}},
    {"alice",
     R"({"op":"createChannelWithId","id":2,"channelId":"a/b"})",
     {{"alice", R"({"id":2,"op":"createChannelWithId","result":false})"}}},
    {"alice",
     R"({"op":"createChannelWithId","id":3,"channelId":"garden"})",
     {{"alice", R"({"id":3,"op":"createChannelWithId","result":true})"}}},
    {"alice",
     R"({"op":"joinWithCompletion","id":4,"channelId":"garden"})",
     {{"alice", R"({"id":4,"op":"joinWithCompletion","code":102})"}}},
    {"alice",
     R"({"op":"getUserAttributes","id":5,"userId":"bob"})",
     {{"alice", R"({"id":5,"op":"getUserAttributes","code":102,"userId":"bob","attributes":null})"}}},

    // Logging in, and channels
    {"alice",
     R"({"op":"loginByToken","id":10,"token":"0123456789abcdef0123456789abcdef","timeStamp":1700000000,"userId":"alice"})",
     {{"alice", R"({"event":"connectionStateChanged","state":2,"reason":1})"},
      {"alice", R"({"event":"connectionStateChanged","state":3,"reason":2})"},
      {"alice", R"({"id":10,"op":"loginByToken","code":0})"}}},
    {"bob",
     R"({"op":"loginByToken","id":11,"token":"0123456789abcdef0123456789abcdef","timeStamp":1700000000,"userId":"bob"})",
     {{"bob", R"({"id":11,"op":"loginByToken","code":0})"}}},
    {"alice",
     R"({"op":"joinWithCompletion","id":12,"channelId":"garden"})",
     {{"alice", R"({"id":12,"op":"joinWithCompletion","code":0})"}}},
    {"bob",
     R"({"op":"createChannelWithId","id":13,"channelId":"garden","delegate":null})",
     {{"bob", R"({"id":13,"op":"createChannelWithId","result":true})"}}},
    {"bob",
     R"({"op":"joinWithCompletion","id":14,"channelId":"garden"})",
     {{"bob", R"({"id":14,"op":"joinWithCompletion","code":0})"},
      {"alice",
       R"({"event":"channel.memberJoined","channelId":"garden","member":{"userId":"bob","channelId":"garden"}})"},
      {"alice", R"({"event":"channel.memberCount","channelId":"garden","count":2})"}}},
    {"alice",
     R"({"op":"getMembersWithCompletion","id":15,"channelId":"garden"})",
     {{"alice",
       R"({"id":15,"op":"getMembersWithCompletion","code":0,"members":[{"userId":"alice","channelId":"garden"},)"
       R"({"userId":"bob","channelId":"garden"}]})"}}},
    {"alice",
     R"({"op":"getChannelMemberCount","id":16,"channelIds":["garden"]})",
     {{"alice", R"({"id":16,"op":"getChannelMemberCount","code":0,"counts":[{"channelId":"garden","count":2}]})"}}},
    {"alice",
     R"({"op":"getChannelMemberCount","id":17,"channelIds":[]})",
     {{"alice", R"({"id":17,"op":"getChannelMemberCount","code":2,"counts":null})"}}},

    // Messages
    {"alice",
     R"({"op":"sendMessage","id":20,"channelId":"garden","text":"grüß dich \"bob\"\n"})",
     {{"alice", R"({"id":20,"op":"sendMessage","code":0})"},
      {"bob",
       R"({"event":"channel.messageReceived","channelId":"garden","message":{"type":1,"text":"grüß dich \"bob\"\n",)"
       R"("rawData":null,"serverReceivedTs":*,"isOfflineMessage":false},)"
       R"("member":{"userId":"alice","channelId":"garden"}})"}}},
    {"bob",
     R"({"op":"sendMessage","id":21,"channelId":"garden","rawData":"AP8Q/w=="})",
     {{"bob", R"({"id":21,"op":"sendMessage","code":0})"},
      {"alice", R"({"event":"channel.messageReceived","channelId":"garden","message":{"type":2,"text":null,)"
                R"("rawData":"AP8Q/w==","serverReceivedTs":*,"isOfflineMessage":false},)"
                R"("member":{"userId":"bob","channelId":"garden"}})"}}},
    {"alice",
     R"({"op":"sendMessageToPeer","id":22,"peerId":"bob","text":"a cat","rawData":"/9j/","enableHistoricalMessaging":true})",
     {{"alice", R"({"id":22,"op":"sendMessageToPeer","code":0})"},
      {"bob", R"({"event":"messageReceived","peerId":"alice","message":{"type":2,"text":"a cat","rawData":"/9j/",)"
              R"("serverReceivedTs":*,"isOfflineMessage":false}})"}}},
    {"alice",
     R"({"op":"sendMessageToPeer","id":23,"peerId":"nobody","text":"?","enableOfflineMessaging":false})",
     {{"alice", R"({"id":23,"op":"sendMessageToPeer","code":3})"}}},

    // Channel attributes
    {"alice",
     R"({"op":"setChannelAttributes","id":30,"channelId":"garden","attributes":[{"key":"topic","value":"roses"}],)"
     R"("enableNotificationToChannelMembers":true})",
     {{"alice", R"({"id":30,"op":"setChannelAttributes","code":0})"},
      {"bob",
       R"({"event":"channel.attributeUpdate","channelId":"garden","attributes":[{"key":"topic","value":"roses"}]})"}}},
    {"alice",
     R"({"op":"addOrUpdateChannelAttributes","id":31,"channelId":"garden","attributes":[{"key":"size","value":"2"}]})",
     {{"alice", R"({"id":31,"op":"addOrUpdateChannelAttributes","code":0})"}}},
    {"bob",
     R"({"op":"getChannelAttributes","id":32,"channelId":"garden"})",
     {{"bob", R"({"id":32,"op":"getChannelAttributes","code":0,"attributes":[{"key":"topic","value":"roses"},)"
              R"({"key":"size","value":"2"}]})"}}},
    {"bob",
     R"({"op":"getChannelAttributesByKeys","id":33,"channelId":"garden","keys":["size"]})",
     {{"bob", R"({"id":33,"op":"getChannelAttributesByKeys","code":0,"attributes":[{"key":"size","value":"2"}]})"}}},
    {"bob",
     R"({"op":"getChannelAttributesByKeys","id":34,"channelId":"garden","keys":[]})",
     {{"bob", R"({"id":34,"op":"getChannelAttributesByKeys","code":3,"attributes":null})"}}},
    {"alice",
     R"({"op":"deleteChannelAttributesByKeys","id":35,"channelId":"garden","keys":["size"]})",
     {{"alice", R"({"id":35,"op":"deleteChannelAttributesByKeys","code":0})"}}},
    {"alice",
     R"({"op":"clearChannelAttributes","id":36,"channelId":"garden","enableNotificationToChannelMembers":true})",
     {{"alice", R"({"id":36,"op":"clearChannelAttributes","code":0})"},
      {"bob", R"({"event":"channel.attributeUpdate","channelId":"garden","attributes":[]})"}}},

    // Attributes of users
    {"bob",
     R"({"op":"subscribePeersUserAttribes","id":40,"peerIds":["alice"]})",
     {{"bob", R"({"id":40,"op":"subscribePeersUserAttribes","code":0})"}}},
    {"alice",
     R"({"op":"setLocalUserAttributes","id":41,"attributes":[{"key":"mood","value":"good"}]})",
     {{"alice", R"({"id":41,"op":"setLocalUserAttributes","code":0})"},
      {"bob", R"({"event":"peersUserAttributesChanged","users":[{"userId":"alice","attributes":)"
              R"([{"key":"mood","value":"good","deleted":false}]}]})"}}},
    {"alice",
     R"({"op":"addOrUpdateLocalUserAttributes","id":42,"attributes":[{"key":"hat","value":"red"},)"
     R"({"key":"coat","value":"blue"},{"key":"coat"}]})",
     {{"alice", R"({"id":42,"op":"addOrUpdateLocalUserAttributes","code":0})"}}},
    {"bob",
     R"({"op":"getUserAttributes","id":43,"userId":"alice"})",
     {{"bob", R"({"id":43,"op":"getUserAttributes","code":0,"userId":"alice","attributes":)"
              R"([{"key":"mood","value":"good"},{"key":"hat","value":"red"}]})"}}},
    {"bob",
     R"({"op":"getUserAttributesByKeys","id":44,"userId":"alice","keys":["hat"]})",
     {{"bob",
       R"({"id":44,"op":"getUserAttributesByKeys","code":0,"userId":"alice","attributes":[{"key":"hat","value":"red"}]})"}}},
    {"bob",
     R"({"op":"getPeersUserAttributes","id":45,"peerIds":["alice","nobody"]})",
     {{"bob", R"({"id":45,"op":"getPeersUserAttributes","code":0,"users":[{"userId":"alice","attributes":)"
              R"([{"key":"mood","value":"good","deleted":false},{"key":"hat","value":"red","deleted":false}]},)"
              R"({"userId":"nobody","attributes":null}]})"}}},
    {"bob",
     R"({"op":"getPeersUserAttributesByKeys","id":46,"peerIds":["alice"],"keys":["hat"]})",
     {{"bob", R"({"id":46,"op":"getPeersUserAttributesByKeys","code":0,"users":[{"userId":"alice","attributes":)"
              R"([{"key":"hat","value":"red","deleted":false}]}]})"}}},
    {"alice",
     R"({"op":"deleteLocalUserAttributesByKeys","id":47,"keys":["mood"]})",
     {{"alice", R"({"id":47,"op":"deleteLocalUserAttributesByKeys","code":0})"},
      {"bob", R"({"event":"peersUserAttributesChanged","users":[{"userId":"alice","attributes":)"
              R"([{"key":"mood","value":"","deleted":true}]}]})"}}},
    {"alice",
     R"({"op":"clearLocalUserAttributesWithCompletion","id":48})",
     {{"alice", R"({"id":48,"op":"clearLocalUserAttributesWithCompletion","code":0})"}}},
    {"bob",
     R"({"op":"unsubscribePeersUserAttribes","id":49,"peerIds":["alice"]})",
     {{"bob", R"({"id":49,"op":"unsubscribePeersUserAttribes","code":0})"}}},

    // Online status
    {"bob",
     R"({"op":"subscribePeersOnlineStatus","id":50,"peerIds":["alice"]})",
     {{"bob", R"({"id":50,"op":"subscribePeersOnlineStatus","code":0})"},
      {"bob", R"({"event":"peersOnlineStatusChanged","statuses":[{"peerId":"alice","isOnline":true}]})"}}},
    {"bob",
     R"({"op":"queryPeersOnlineStatus","id":51,"peerIds":["alice","nobody"]})",
     {{"bob", R"({"id":51,"op":"queryPeersOnlineStatus","code":0,"statuses":[{"peerId":"alice","isOnline":true},)"
              R"({"peerId":"nobody","isOnline":false}]})"}}},
    {"bob",
     R"({"op":"queryPeersBySubscriptionOption","id":52,"option":0})",
     {{"bob", R"({"id":52,"op":"queryPeersBySubscriptionOption","code":0,"peerIds":["alice"]})"}}},
    {"bob",
     R"({"op":"unsubscribePeersOnlineStatus","id":53,"peerIds":["alice"]})",
     {{"bob", R"({"id":53,"op":"unsubscribePeersOnlineStatus","code":0})"}}},

    // Invitations: one accepted, one canceled, one refused
    {"alice",
     R"({"op":"getPimInvitationKit","id":60})",
     {{"alice", R"({"id":60,"op":"getPimInvitationKit","result":true})"}}},
    {"bob",
     R"({"op":"getPimInvitationKit","id":61})",
     {{"bob", R"({"id":61,"op":"getPimInvitationKit","result":true})"}}},
    {"alice",
     R"({"op":"newInvitation","id":62,"invitation":"one","inviter":"alice","invitee":"bob","requestInfo":"a walk?"})",
     {{"alice", R"({"id":62,"op":"newInvitation","result":true})"}}},
    {"alice",
     R"({"op":"sendInvitation","id":63,"invitation":"one"})",
     {{"alice", R"({"id":63,"op":"sendInvitation","code":0,"invitation":{"inviter":"alice","invitee":"bob",)"
                R"("requestInfo":"a walk?","responseInfo":null,"state":2}})"},
      {"bob", R"({"event":"invitationArrived","invitation":{"inviter":"alice","invitee":"bob","requestInfo":"a walk?",)"
              R"("responseInfo":"","state":2},"label":"from:alice","sameObject":true})"}}},
    {"bob",
     R"({"op":"acceptInvitation","id":64,"invitation":"from:alice","responseInfo":"yes"})",
     {{"bob", R"({"id":64,"op":"acceptInvitation","code":0,"invitation":{"inviter":"alice","invitee":"bob",)"
              R"("requestInfo":"a walk?","responseInfo":"yes","state":2}})"},
      {"alice",
       R"({"event":"invitationAccept","invitation":{"inviter":"alice","invitee":"bob","requestInfo":"a walk?",)"
       R"("responseInfo":"yes","state":4},"label":"one","sameObject":false})"}}},
    {"alice",
     R"({"op":"invitation","id":65,"invitation":"one"})",
     {{"alice", R"({"id":65,"op":"invitation","result":{"inviter":"alice","invitee":"bob","requestInfo":"a walk?",)"
                R"("responseInfo":null,"state":4}})"}}},
    {"alice",
     R"({"op":"newInvitation","id":66,"invitation":"two","inviter":"alice","invitee":"bob"})",
     {{"alice", R"({"id":66,"op":"newInvitation","result":true})"}}},
    {"alice",
     R"({"op":"sendInvitation","id":67,"invitation":"two","requestInfo":"a ride?"})",
     {{"bob",
       R"({"event":"invitationArrived","invitation":{*"requestInfo":"a ride?"*},"label":"from:alice","sameObject":true})"}}},
    {"alice",
     R"({"op":"cancelInvitation","id":68,"invitation":"two"})",
     {{"alice", R"({"id":68,"op":"cancelInvitation","code":0,"invitation":{*"state":2}})"},
      {"bob", R"({"event":"invitationCanceled","invitation":{*"state":3},"label":"from:alice","sameObject":true})"}}},
    {"alice",
     R"({"op":"newInvitation","id":69,"invitation":"three","inviter":"alice","invitee":"bob"})",
     {{"alice", R"({"id":69,"op":"newInvitation","result":true})"}}},
    {"alice",
     R"({"op":"sendInvitation","id":70,"invitation":"three"})",
     {{"bob", R"({"event":"invitationArrived",*})"}}},
    {"bob",
     R"({"op":"refuseInvitation","id":71,"invitation":"from:alice","responseInfo":"no"})",
     {{"bob", R"({"id":71,"op":"refuseInvitation","code":0,"invitation":{*"responseInfo":"no"*}})"},
      {"alice", R"({"event":"invitationRefused","invitation":{*"state":5},"label":"three","sameObject":true})"}}},
    {"bob", R"({"op":"sendInvitation","id":72,"invitation":"one"})", {{"bob", R"({"error":"*","id":72})"}}},
    {"bob",
     R"({"op":"sendInvitation","id":73,"invitation":"from:alice"})",
     {{"bob", R"({"id":73,"op":"sendInvitation","code":5,"invitation":{*}})"}}},

    // The rest
    {"alice", R"({"op":"getDebugInfo","id":80})", {{"alice", R"({"id":80,"op":"getDebugInfo","result":{"*})"}}},
    {"alice",
     R"({"op":"getSDKVersion","id":81})",
     {{"alice", R"({"id":81,"op":"getSDKVersion","result":"sdkVersion/*"})"}}},
    {"alice",
     R"({"op":"setParameters","id":82,"parameters":"{}"})",
     {{"alice", R"({"id":82,"op":"setParameters","result":0})"}}},
    {"alice",
     R"({"op":"setLogFile","id":83,"path":"/dev/null"})",
     {{"alice", R"({"id":83,"op":"setLogFile","result":true})"}}},
    {"alice",
     R"({"op":"setLogFilters","id":84,"filters":0})",
     {{"alice", R"({"id":84,"op":"setLogFilters","result":true})"}}},
    {"alice", R"({"op":"sleep","id":85,"seconds":0.01})", {{"alice", R"({"id":85,"op":"sleep","result":true})"}}},
    {"alice",
     R"({"op":"renewToken","id":86,"token":"short","timeStamp":2})",
     {{"alice", R"({"id":86,"op":"renewToken","code":2,"token":"short"})"}}},

    // Going
    {"bob",
     R"({"op":"leaveWithCompletion","id":90,"channelId":"garden"})",
     {{"bob", R"({"id":90,"op":"leaveWithCompletion","code":0})"},
      {"alice",
       R"({"event":"channel.memberLeft","channelId":"garden","member":{"userId":"bob","channelId":"garden"}})"},
      {"alice",
       R"({"event":"channel.memberLeftWithReason","channelId":"garden","member":{"userId":"bob","channelId":"garden"},)"
       R"("reason":1})"}}},
    {"alice",
     R"({"op":"destroyChannelWithId","id":91,"channelId":"garden"})",
     {{"alice", R"({"id":91,"op":"destroyChannelWithId","result":true})"}}},
    {"alice",
     R"({"op":"destroyChannelWithId","id":92,"channelId":"garden"})",
     {{"alice", R"({"id":92,"op":"destroyChannelWithId","result":false})"}}},
    {"alice",
     R"({"op":"sendMessage","id":93,"channelId":"garden","text":"gone"})",
     {{"alice", R"({"error":"*","id":93})"}}},
    {"alice",
     R"({"op":"logoutWithCompletion","id":94})",
     {{"alice", R"({"event":"connectionStateChanged","state":1,"reason":6})"},
      {"alice", R"({"id":94,"op":"logoutWithCompletion","code":0})"}}},
};

TEST(ConsoleAnswers, EveryOperationAndEventHasItsExactShape) {
    Service service;
    std::map<std::string, Program> programs;
    programs.try_emplace("alice", consoleCommand(service.url()));
    programs.try_emplace("bob", consoleCommand(service.url()));
    for (auto const& step : kSession) {
        programs.at(step.who).send(step.line);
        for (auto const& [who, pattern] : step.printed) ASSERT_TRUE(programs.at(who).prints(pattern)) << step.line;
    }
    for (auto& [who, program] : programs) {
        program.send(R"({"op":"quit"})");
        EXPECT_EQ(program.exitStatus(), 0) << who;
        for (auto const& line : program.otherLines()) EXPECT_FALSE(line.starts_with(R"({"error")")) << line;
    }
}

}  // namespace
}  // namespace kv::test
