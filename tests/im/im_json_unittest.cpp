// The JSON the manager writes for the SDK, checked as text.
#include <gtest/gtest.h>

#include <string>

#include "im/im_manager_impl.h"

namespace {

TEST(ImJson, InitConfig) {
  EXPECT_EQ(ImManagerImpl::BuildInitConfigJson(""), "{}");
  EXPECT_EQ(ImManagerImpl::BuildInitConfigJson("abc"),
            "{\"sdk_config_config_file_path\":\"abc\\\\imconfig\"}");
  EXPECT_EQ(ImManagerImpl::BuildInitConfigJson("c:/x/"),
            "{\"sdk_config_config_file_path\":\"c:/x/\\\\imconfig\"}");
}

TEST(ImJson, SetConfig) {
  EXPECT_EQ(ImManagerImpl::BuildSetConfigJson(),
            "{\"set_config_is_log_output_console\":false,\"set_config_callback_log_level\":1}");
}

// The two time stamps are the only varying part; they are cut out here.
std::string WithoutTimes(const std::string& json) {
  std::string out = json;
  for (const char* key : {"\"message_client_time\":", "\"message_server_time\":"}) {
    size_t at = out.find(key);
    if (at == std::string::npos) return "<missing time>";
    size_t begin = at + std::string(key).size();
    size_t end = out.find(',', begin);
    out.replace(begin, end - begin, "T");
  }
  return out;
}

TEST(ImJson, CustomMessage) {
  EXPECT_EQ(WithoutTimes(ImManagerImpl::BuildMessageJson(2, "g", "me", "a\"b\\c\x7f\x01\xe4", 3)),
            "{\"message_conv_type\":2,\"message_conv_id\":\"g\",\"message_sender\":\"me\","
            "\"message_client_time\":T,\"message_server_time\":T,\"message_elem_array\":[{\"elem_type\":3,"
            "\"custom_elem_data\":\"a\\\"b\\\\c\x7f\\u0001\xe4\",\"custom_elem_desc\":\"\",\"custom_elem_"
            "ext\":\"\","
            "\"custom_elem_sound\":\"\"}]}");
}

TEST(ImJson, TextAndUnknownElements) {
  EXPECT_EQ(WithoutTimes(ImManagerImpl::BuildMessageJson(1, "bob", "me", "hi\n", 0)),
            "{\"message_conv_type\":1,\"message_conv_id\":\"bob\",\"message_sender\":\"me\","
            "\"message_client_time\":T,\"message_server_time\":T,\"message_elem_array\":[{\"elem_type\":0,"
            "\"text_elem_content\":\"hi\\n\"}]}");
  EXPECT_EQ(WithoutTimes(ImManagerImpl::BuildMessageJson(2, "g", "me", "x", 5)),
            "{\"message_conv_type\":2,\"message_conv_id\":\"g\",\"message_sender\":\"me\","
            "\"message_client_time\":T,\"message_server_time\":T,\"message_elem_array\":[{}]}");
}

}  // namespace
