// ImManager as a host sees it, against the scriptable imsdk.dll stand-in.
#include <functional>
#include <thread>
#include <utility>

#include "base/scoped_handle.h"
#include "im/im_test_support.h"

namespace im_test {
namespace {

const std::string kLoginTask =  // one login task's calls, up to TIMLogin
    "TIMInit(1400000001,{});TIMSetNetworkStatusListenerCallback(p,self);TIMSetKickedOfflineCallback(p,self);"
    "TIMSetUserSigExpiredCallback(p,self);TIMSetGroupTipsEventCallback(p,self);TIMSetLogCallback(p,null);"
    "TIMSetConfig({\"set_config_is_log_output_console\":false,\"set_config_callback_log_level\":1},p,self);"
    "TIMLogin(alice,sig,p,self)";
std::string Sent(const std::string& element, const std::string& conv = kGroup, int type = 2) {
  std::string sent = Msg(element, conv, "alice", type);
  sent.insert(sent.find("\"message_elem"), "\"message_client_time\":T,\"message_server_time\":T,");
  return "TIMMsgSendNewMsg(" + conv + "," + N(type) + "," + sent + ",p,p)";
}
std::string Board(const std::string& data) {
  return "{\"elem_type\":3,\"custom_elem_data\":\"" + data +
         "\",\"custom_elem_desc\":\"\",\"custom_elem_ext\":\"\",\"custom_elem_sound\":\"\"}";
}
void* Tag(intptr_t n) { return reinterpret_cast<void*>(n); }

TEST_F(ImTest, ALoginFromNothingToTheGroupAndTheEndOfTheInstance) {
  Join();
  EXPECT_EQ(Sdk(), L(kLoginTask + ";TIMGroupJoin(group-1,back,p,self) in TIMLogin;"
                                  "TIMAddRecvNewMsgCallback(p,self) in TIMGroupJoin"));
  EXPECT_EQ(journal_.Of(), L("ev 1|0|login success;ev 4|0|success"));
  char hex[16];
  std::snprintf(hex, sizeof(hex), "%x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(&journal_)));
  EXPECT_EQ(Log(),
            Sorted(L("SetEventCallback:0x" + S(hex) +
                     ";LogIn:app_id:1400000001, account_type:36862, usr_id:alice, usr_sign:sig;OnLoginTask;"
                     "Initialize:app_id:1400000001, account_type:36862;TIMSDKConfig;Initialize finish;"
                     "TIMSetConfig TIMSetConfig:success_code=0, success_desc=OK;JoinGroupTask:group id:"
                     "group-1;TIMLogin callback:success_code=0, success_desc=OK;JoinGroup callback:"
                     "succes_code=0, success_desc=OK")));
  const size_t before = Sdk().size();
  ImManager::DestroyImManagerInstance(), ImManager::DestroyImManagerInstance();  // the second: nothing left
  EXPECT_EQ(Sdk(nullptr, before), L("TIMSetNetworkStatusListenerCallback(null,null) here;TIMSetKickedOffline"
                                    "Callback(null,null) here;TIMSetUserSigExpiredCallback(null,null) here;"
                                    "TIMSetGroupTipsEventCallback(null,null) here;TIMUninit() here"));
  EXPECT_TRUE(Logged("UnInitialize"));
  manager_ = ImManager::GetImManagerInstance();  // a new object: no user, not logged in
  EXPECT_STREQ(manager_->GetUsrId(), "");
  LogIn("carol");
  ASSERT_TRUE(ImsdkWaitForCalls("TIMLogin", 2, kWait));
  EXPECT_EQ(Sdk("TIMLogin")[1], "TIMLogin(carol,sig,p,self)");
}
// During a destroy a handler on its task thread gets the dying object, any other thread a new one.
TEST_F(ImTest, DuringADestroyOnlyItsTaskThreadGetsTheDyingInstance) {
  ImManager* own = nullptr;
  bool answered_early = false;
  base::ScopedHandle dying{NewEvent()}, answered{NewEvent()};
  journal_.then = [&](const std::string&) {
    MSG msg;  // until the destroy has posted its stop to this thread
    for (int i = 0; i < 100 && !PeekMessageW(&msg, nullptr, 8000, 8000, PM_NOREMOVE); ++i)
      MsgWaitForMultipleObjects(0, nullptr, FALSE, kWait, QS_POSTMESSAGE);
    own = ImManager::GetImManagerInstance();
    SetEvent(dying.get());
    answered_early = WaitForSingleObject(answered.get(), 100) == WAIT_OBJECT_0;  // as the dying one would
  };
  manager_->SetEventCallback(&journal_);
  ImsdkScriptResult("TIMInit", 1);  // the failed login is reported on the task thread
  manager_->LogInAndJoinGroup("1", "2", "alice", "sig", kGroup);
  std::thread destroy([] { ImManager::DestroyImManagerInstance(); });
  ASSERT_TRUE(Wait(dying.get()));
  const std::string user = ImManager::GetImManagerInstance()->GetUsrId();
  SetEvent(answered.get());
  destroy.join();
  EXPECT_EQ(journal_.Of(), L("ev 1|-1|initialize failed!"));
  EXPECT_EQ(own, manager_);
  EXPECT_FALSE(answered_early);
  EXPECT_EQ(user, "");
}
TEST_F(ImTest, InitializeWithItsConfigurationAndTheOutcomesOfItsStepsAndTheJoin) {
  manager_->SetEventCallback(&journal_);
  manager_->LogInAndJoinGroup("-5", "2", "alice", "sig", kGroup);
  const char* paths[] = {"C:/rooms/", "D:\\data\\", ""};  // always a backslash before the file
  for (size_t i = 0; i < 3; ++i) {
    ASSERT_TRUE(journal_.WaitFor("ev 4|", i + 1));
    manager_->SetConfigPath(paths[i]), manager_->ReLogIn();
  }
  ASSERT_TRUE(journal_.WaitFor("ev 4|", 4));
  const std::string init = "TIMInit(18446744073709551611,", path = "{\"sdk_config_config_file_path\":\"";
  EXPECT_EQ(Sdk("TIMInit"), L(init + "{});" + init + path + "C:/rooms/\\\\imconfig\"});" + init + path +
                              "D:\\\\data\\\\\\\\imconfig\"});" + init + "{})"));
  // One step's scripted result or callback: the events, a log line, the init, join and subscribe+send calls.
  const struct {
    const char* function;
    int result, code;
    std::string events, log, calls;
  } cases[] = {{"TIMGroupJoin", 0, 10013, "ev 1|0|login success;ev 4|0|success;ev 10|0|OK",
                "JoinGroup callback:succes_code=10013, success_desc=in", "1 1 2"},
               {"TIMGroupJoin", 1, 0, "ev 1|0|login success;ev 4|-1|failed", "JoinGroupTask:group id:group-1",
                "1 1 0"},
               {"TIMGroupJoin", 0, 10010, "ev 1|0|login success;ev 4|10010|in",
                "JoinGroup callback:error_code=10010, error_desc=in.failed!", "1 1 0"},
               {"TIMSetConfig", 3, 0, "ev 1|0|login success;ev 4|0|success;ev 10|0|OK",
                "TIMSetConfig failed!", "1 1 2"},
               {"TIMSetConfig", 0, 6017, "ev 0|6017|in;ev 1|0|login success;ev 4|0|success;ev 10|0|OK",
                "TIMSetConfig callback:error_code=6017, error_desc=in.failed!", "1 1 2"},
               {"TIMInit", 7, 0, "ev 1|-1|initialize failed!", "Initialize failed!", "1 0 0"}};
  for (const auto& c : cases) {
    Fresh();
    ImsdkScriptResult(c.function, c.result);
    if (c.code) ImsdkScriptCallback(c.function, c.code, "in");
    LogIn();
    ASSERT_TRUE(journal_.WaitFor(c.result == 7 ? "ev 1|" : "ev 4|"));
    manager_->SendWhiteBoardData("x", 1, nullptr);
    DrainTasks();
    EXPECT_EQ(journal_.Of(), L(c.events + ";ev 5|0|success"));
    const int sent = Calls("TIMAddRecvNewMsgCallback") + Calls("TIMMsgSendNewMsg");
    EXPECT_EQ(N(Calls("TIMInit")) + " " + N(Calls("TIMGroupJoin")) + " " + N(sent), c.calls);
    EXPECT_TRUE(Logged(c.log)) << c.log;
  }
  ImManager::DestroyImManagerInstance();
  EXPECT_EQ(Calls("TIMUninit"), 0);
}
// Without an event interface events are dropped, and the network listener logs nothing.
TEST_F(ImTest, ListenersReportNetworkStatusAnExpiredSignatureAndSdkLogLines) {
  manager_->LogInAndJoinGroup("1", "2", "alice", "sig", kGroup);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMAddRecvNewMsgCallback", 1, kWait));
  ImsdkFireNetworkStatus(0, 0, "unheard");
  ImsdkFireUserSigExpired();
  Deliver("[" + Msg(Text("unheard")) + "," + Msg(Custom("unheard"), "bob", "bob", 1) + "]");
  manager_->SetEventCallback(&journal_);
  manager_->SetWhiteBoardCallback(&journal_);
  ImsdkEmitLog(3, "imsdk: \xe5\x8c\x97\xe4\xba\xac \xc3\xa9t\xc3\xa9");
  for (int status : {0, 2, 1, 3, 7}) ImsdkFireNetworkStatus(status, status * 10, ("s" + N(status)).c_str());
  ImsdkFireUserSigExpired();
  Deliver("[" + Msg(Custom("still in")) + "]");
  EXPECT_EQ(journal_.Of(),
            L("ev 14|0|s0;ev 15|20|s2;ev 16|10|s1;ev 16|30|s3;ev 18|-1|;wb group-1|bob|still in|8"));
  const std::string net = "HandleTIMNetworkStatusListenerCallback: IMEvent_";
  EXPECT_EQ(Log(L"HandleTIMNetwork"),
            L(net + "Connected;" + net + "Connecting;" + net + "Disconnected;" + net + "Disconnected"));
  EXPECT_TRUE(Logged("OnTIMUserSigExpiredCallback", 2));
  EXPECT_EQ(log_.Count(L"imsdk: \x5317\x4eac \x00e9t\x00e9", L"TIM"), 1);
  EXPECT_EQ(Calls("TIMLogin"), 1);
}
TEST_F(ImTest, AFailedLoginIsRetriedThreeTimesAndTheCountStartsAgain) {
  for (int failures : {4, 2}) {
    Fresh();
    std::string events, calls;
    for (int i = 0; i < failures; ++i)
      ImsdkScriptCallback("TIMLogin", 6206 + i, "no"), events += ";ev 1|" + N(6206 + i) + "|no";
    const Lines attempts = L(events.substr(1) + (failures == 2 ? ";ev 1|0|login success" : ""));
    for (size_t i = 0; i < attempts.size(); ++i) calls += ";" + kLoginTask;
    LogIn();
    ASSERT_TRUE(journal_.WaitFor("ev 1|", attempts.size()));
    DrainTasks();
    const Lines sdk = Sdk(), want = L(calls.substr(1));
    EXPECT_EQ(Lines(sdk.begin(), sdk.begin() + std::min(sdk.size(), want.size())), want);
    EXPECT_EQ(journal_.Of("ev 1|"), attempts);
    EXPECT_EQ(Log(L"try"), L("try login 1;try login 2" + S(failures == 4 ? ";try login 3" : "")));
    EXPECT_TRUE(Logged("TIMLogin callback:error_code=6207, error_desc=no.failed!"));
    if (failures == 2) ImsdkFireKickedOffline();  // out again, so that the next login task calls TIMLogin
    ASSERT_TRUE(failures == 4 || journal_.WaitFor("ev 13|0|"));
    log_.Clear();
    for (int i = 0; i < 4; ++i) ImsdkScriptCallback("TIMLogin", 70001, "again");
    manager_->SetWhiteBoardCallback(&journal_);  // not logged in: so it logs in
    ASSERT_TRUE(journal_.WaitFor("ev 1|70001", 4));
    DrainTasks();
    EXPECT_EQ(Calls("TIMLogin"), static_cast<int>(attempts.size()) + 4);
    EXPECT_EQ(Log(L"try"), L("try login 1;try login 2;try login 3"));
  }
}
// Out of the group, data waits for a ReLogIn's join; a new LogInAndJoinGroup frees it and what was held.
TEST_F(ImTest, AfterAQuitOrAKickALoginJoinsAgain) {
  const std::string join = "TIMGroupJoin(group-1,back,p,self)",
                    subscribe = ";TIMAddRecvNewMsgCallback(p,self) in TIMGroupJoin;";
  const struct {
    bool kick, anew;
    std::string events, tail;
  } cases[] = {
      {false, false,
       "ev 5|0|success;wb group-1|bob|out|3;ev 5|10007|not a member;ev 4|0|success;ev 10|0|OK;res 0|OK|3",
       join + subscribe + Sent(Board("later")) + " in TIMGroupJoin"},
      {true, false, "ev 13|0|;ev 1|0|login success;ev 4|0|success;ev 10|0|OK;res 0|OK|3",
       join + " in TIMLogin" + subscribe + Sent(Board("later")) + " in TIMGroupJoin"},
      {false, true, "ev 5|0|success;ev 5|10007|not a member;ev 4|0|success",
       "TIMGroupJoin(group-2,back,p,self)" + subscribe.substr(0, subscribe.size() - 1)}};
  for (const auto& c : cases) {
    Fresh();
    Join();
    manager_->SetWhiteBoardCallback(c.anew ? nullptr : &journal_);
    c.kick ? ImsdkFireKickedOffline() : manager_->LogoutAndQuitGroup();
    ASSERT_TRUE(journal_.WaitFor(L(c.events)[0]));
    Deliver("[" + Msg(Custom("out")) + "]");
    manager_->SendWhiteBoardData("later", 5, Tag(3));
    ImsdkScriptCallback("TIMGroupQuit", 10007, "not a member");
    if (!c.kick) DrainTasks();  // out of the group, TIMGroupQuit is still called
    ImsdkScriptCallback("TIMGroupJoin", 10013, "member");
    c.anew ? LogIn("dave", "group-2") : manager_->ReLogIn();
    ASSERT_TRUE(journal_.WaitFor(L(c.events).back(), c.anew ? 2 : 1) && ImsdkWaitIdle(kWait));
    manager_->SetWhiteBoardCallback(&journal_);  // nothing held
    const Lines sdk = Sdk(), tail = L(c.tail);
    EXPECT_EQ(journal_.Of(), L("ev 1|0|login success;ev 4|0|success;" + c.events));
    EXPECT_EQ(Lines(sdk.end() - tail.size(), sdk.end()), tail);
    EXPECT_EQ(Calls("TIMLogin") + Calls("TIMLogout"), c.kick ? 2 : 1);
    EXPECT_STREQ(manager_->GetUsrId(), c.anew ? "dave" : "alice");
    EXPECT_TRUE(Logged("OnTIMKickedOfflineCallback", c.kick));
    if (c.kick || c.anew) continue;
    EXPECT_EQ(Log(L"QuitGroup"),
              L("QuitGroup callback:error_code=10007, error_desc=not a member.failed!;QuitGroup "
                "callback:succes_code=0;QuitGroupTask:group id:group-1;QuitGroupTask:group id:group-1"));
    EXPECT_TRUE(Logged("LogoutAndQuitGroup:group id:group-1", 2) && Logged("OnLogoutTask", 2));
  }
}
// Data sent during the join's report or flush doesn't overtake the flush; after the quit it waits for a join.
TEST_F(ImTest, DataSentBeforeTheJoinOrDuringItsFlushGoesOutInOrderInsideTheJoinsCallback) {
  base::ScopedHandle joined{NewEvent()}, gate{NewEvent()};
  journal_.then = [&](const std::string& line) {
    if (line.rfind("ev 4|", 0) == 0) SetEvent(joined.get()), WaitForSingleObject(gate.get(), kWait);
  };
  manager_->SendWhiteBoardData("too early", 9, Tag(9));
  manager_->SetWhiteBoardCallback(&journal_);
  manager_->SetEventCallback(&journal_);
  ImsdkHoldCallbacks("TIMGroupJoin", 1);
  manager_->LogInAndJoinGroup("1", "2", "alice", "sig", kGroup);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  for (intptr_t i = 1; i <= 2; ++i) manager_->SendWhiteBoardData(("d" + N(i)).c_str(), 2, Tag(i));
  manager_->SendC2CTextMessage("bob", "dropped");
  manager_->SendGroupTextMessage("at once");
  Lines sent = {Sent(Text("at once")) + " here"};
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Sdk("TIMMsgSendNewMsg"), sent);
  ImsdkHoldCallbacks("TIMGroupJoin", 0);
  ASSERT_TRUE(Wait(joined.get()));
  manager_->SendWhiteBoardData("d3", 2, Tag(3));
  ImsdkBlockCalls("TIMMsgSendNewMsg", 4);  // d3, the flush's last record
  SetEvent(gate.get());
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 4, kWait));
  manager_->SendWhiteBoardData("d4", 2, Tag(4));
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", 1, kWait));  // out of the group now
  manager_->SendWhiteBoardData("after", 5, Tag(5));
  ImsdkBlockCalls("TIMMsgSendNewMsg", 0);
  ASSERT_TRUE(journal_.WaitFor("res ", 5) && journal_.WaitFor("ev 5|") && ImsdkWaitIdle(kWait));
  for (int i = 1; i <= 4; ++i) sent.push_back(Sent(Board("d" + N(i))) + " in TIMGroupJoin");
  EXPECT_EQ(Sdk("TIMMsgSendNewMsg"), sent);
  EXPECT_EQ(journal_.Of("res"), L("res 0|OK|0;res 0|OK|1;res 0|OK|2;res 0|OK|3;res 0|OK|4"));
  EXPECT_EQ(journal_.Of("ev 7|"), Lines{});
  manager_->ReLogIn();
  DrainTasks();
  EXPECT_EQ(Sdk("TIMMsgSendNewMsg").back(), Sent(Board("after")) + " in TIMGroupJoin");
}
// Of a batch, group messages from others pass, C2C ones from any conversation; keys of a wrong type count as
// missing; deeper than 256 levels, it is refused before the parse, which recurses. Data held for want of an
// interface goes to the thread that sets one, as the own user's; data arriving meanwhile waits behind it.
TEST_F(ImTest, WhatReachesTheHostOfAReceivedBatchAndWhatIsHeldForIt) {
  const std::string live = "[" + Msg(Custom("live")) + "]";
  journal_.then = [&](const std::string& line) {
    if (line != "wb group-1|alice|held 1|6 here") return;
    ImsdkDeliverMessages(live.c_str());
    log_.WaitFor(L"HandleTIMRecvNewMsgCallback:" + std::wstring(live.begin(), live.end()));
  };
  Join();
  manager_->SetWhiteBoardCallback(&journal_);
  Deliver("not json");
  const std::string head = "{\"message_conv_type\":2,\"message_sender\":\"bob\",\"message_";
  const std::string batch =
      "[" + Msg(Custom("other group"), "group-9") + "," + Msg(Custom("my own"), kGroup, "alice") + "," +
      Msg(Text("mine"), "alice", "alice", 1) + "," +
      Msg(Custom("one") + "," + Custom("a\\u0000b\\\"\xc3\xa9") + "," + Custom("")) + "," +
      Msg(Text("hello group")) + "," + Msg(Text("hi") + "," + Custom("data"), "bob", "bob", 1) +
      ",{\"message_conv_id\":\"group-1\",\"message_sender\":\"bob\",\"message_elem_array\":[" +
      Custom("no type") + "]}," + head + "conv_id\":1,\"message_elem_array\":[" + Custom("numeric") + "]}," +
      head + "elem_array\":[" + Custom("no conv") + "]}," + head +
      "conv_id\":\"group-1\",\"message_elem_array\":" + Custom("no array") + "}," +
      Msg("{\"elem_type\":3,\"custom_elem_data\":5},{\"elem_type\":1,\"text_elem_content\":\"x\"},{\"text_"
          "elem_content\":\"untyped\"},{\"elem_type\":0,\"text_elem_content\":7},42," +
          Custom("kept")) +
      ",42]";
  Deliver(batch);
  Deliver("{\"message_conv_type\":2}");  // no array: no messages
  Lines want =
      L("ev 1|0|login success;ev 4|0|success;wb group-1|bob|one|3;;wb group-1|bob||0;text group-1|bob|hello "
        "group;c2c bob|hi;c2cdata bob|data|4;text group-1|bob|untyped;wb group-1|bob|kept|4");
  want[3] = S({"wb group-1|bob|a\0b\"\xc3\xa9|6", 23});
  EXPECT_EQ(journal_.Take(), want);
  EXPECT_EQ(Log(L"HandleTIMRecv"), Sorted({"HandleTIMRecvNewMsgCallback:" + batch,
                                           "HandleTIMRecvNewMsgCallback:{\"message_conv_type\":2}"}));
  EXPECT_TRUE(Logged("OnRecvWhiteBoardData in HandleRecvGroupCustomMsg: kept"));
  const std::string brackets = std::string(1000, '[') + "\"{" + std::string(1000, '{');
  const std::string quoted = std::string(1000, '[') + "\\\"{" + std::string(1000, '{');
  const std::pair<int, std::string> nests[] = {{254, "254"}, {255, "255"}, {100000, "x"}, {1, quoted}};
  for (const auto& [n, d] : nests)  // the message is the second level, its nest beside the elements
    Deliver("[" + Msg(Custom(d)).insert(1, "\"x\":" + std::string(n, '[') + std::string(n, ']') + ",") + "]");
  EXPECT_EQ(journal_.Take(), (Lines{"wb group-1|bob|254|3", "wb group-1|bob|" + brackets + "|2002"}));
  EXPECT_TRUE(Logged("HandleTIMRecvNewMsgCallback: batch nested deeper than 256 levels, dropped", 2));
  manager_->SetWhiteBoardCallback(nullptr);
  Deliver("[" + Msg(Custom("held 1")) + "]");
  Deliver("[" + Msg(Custom("")) + "," + Msg(Text("text")) + "," + Msg(Custom("c2c"), "bob", "bob", 1) + "]");
  const std::string push = "HandleRecvGroupCustomMsg: push msg to cache: ",
                    flush = "OnRecvWhiteBoardData in Set";
  EXPECT_EQ(Log(L"HandleRecvGroupCustomMsg"), L(push + ";" + push + "held 1"));
  manager_->SetWhiteBoardCallback(&journal_);
  ASSERT_TRUE(journal_.WaitFor("wb", 3) && ImsdkWaitIdle(kWait));
  manager_->SetWhiteBoardCallback(&journal_);  // nothing held any more; logged in, so no login either
  DrainTasks();
  EXPECT_EQ(journal_.Take(), L("text group-1|bob|text;c2cdata bob|c2c|3;wb group-1|alice|held 1|6 here;wb "
                               "group-1|alice|null|0 here;wb group-1|bob|live|4;ev 5|0|success"));
  EXPECT_EQ(Log(L"OnRecvWhiteBoardData in Set"),
            L(flush + "WhiteBoardCallback: ;" + flush + "WhiteBoardCallback: held 1"));
  EXPECT_TRUE(Logged("SetWhiteBoardCallback:0x0"));
}
// Only the JSON writer's escapes apply; data is cut at its first NUL.
TEST_F(ImTest, EachSendGoesOutAsOneMessageAndItsOutcomeReachesBothInterfaces) {
  Join();
  manager_->SetWhiteBoardCallback(&journal_);
  const std::string data = S("say \"hi\" \\ back\n\t\x01\x1f") + "\xc3\xa9\xe2\x82\xac\xff\x80";
  const struct {
    std::function<void()> send;
    std::string sent;
    int event, tag;
  } cases[] = {
      {[&] { manager_->SendWhiteBoardData(data.c_str(), static_cast<int>(data.size()), Tag(1)); },
       Sent(Board("say \\\"hi\\\" \\\\ back\\n\\t\\u0001\\u001F\xc3\xa9\xe2\x82\xac\xff\x80")), 10, 1},
      {[&] { manager_->SendWhiteBoardData("ab\0cd", 5, Tag(2)); }, Sent(Board("ab")), 10, 2},
      {[&] { manager_->SendWhiteBoardData("", 0, Tag(3)); }, Sent(Board("")), 10, 3},
      {[&] { manager_->SendGroupCustomMessage("group data", 1, Tag(9)); },
       Sent(Board("group data")) + " here", 10, 0},
      {[&] { manager_->SendC2CCustomMessage("bob", "c2c data", 3); },
       Sent(Board("c2c data"), "bob", 1) + " here", 9, 0},
      {[&] { manager_->SendGroupTextMessage("text"); }, Sent(Text("text")) + " here", 8, 0},
      {[&] { manager_->SendC2CTextMessage("bob", "hi"); }, Sent(Text("hi"), "bob", 1) + " here", 7, 0}};
  for (int i = 0; i < 7; ++i) {
    ImsdkScriptCallback("TIMMsgSendNewMsg", 80001 + i, ("desc " + N(i)).c_str());
    cases[i].send();
    ASSERT_TRUE(journal_.WaitFor("res ", i + 1));
    const Lines all = journal_.Of();
    const std::string outcome = N(80001 + i) + "|desc " + N(i);
    EXPECT_EQ(Lines(all.end() - 2, all.end()),
              (Lines{"ev " + N(cases[i].event) + "|" + outcome, "res " + outcome + "|" + N(cases[i].tag)}));
    EXPECT_EQ(Sdk("TIMMsgSendNewMsg").back(), cases[i].sent);
  }
  EXPECT_TRUE(Logged("SendWhiteBoardData:ab") && Logged("SendWhiteBoardData:"));
  EXPECT_TRUE(Logged("OnSendWhiteBoardDataTask, ret: 1", 3));
}

}  // namespace
}  // namespace im_test
