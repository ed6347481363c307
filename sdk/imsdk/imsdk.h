// Contract of imsdk.dll, the TIM instant-messaging SDK, as roomcore uses it:
// login, one group, messages. Text in and out is UTF-8; messages and settings
// travel as JSON text. Callbacks come on the SDK's own threads.
#pragma once

#include <stdint.h>

#if defined(IMSDK_BUILD)
#define IMSDK_API __declspec(dllexport)
#else
#define IMSDK_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Conversation types of message JSON (`message_conv_type`).
enum TIMConvType {
  kTIMConv_C2C = 1,
  kTIMConv_Group = 2,
};

// Element types of message JSON (`elem_type`).
enum TIMElemType {
  kTIMElem_Text = 0,
  kTIMElem_Custom = 3,
};

// Network status values of the network status callback.
enum TIMNetworkStatus {
  kTIMConnected = 0,
  kTIMDisconnected = 1,
  kTIMConnecting = 2,
  kTIMConnectFailed = 3,
};

// The SDK's code for a join by a user who is already a member.
#define TIM_ERR_ALREADY_GROUP_MEMBER 10013

// Outcome of an asynchronous call: code 0 is success. The JSON carries
// details that roomcore does not read.
typedef void (*TIMCommCallback)(int32_t code, const char* desc, const char* json_params,
                                const void* user_data);
// A batch of new messages: a JSON array of message objects.
typedef void (*TIMRecvNewMsgCallback)(const char* json_msg_array, const void* user_data);
typedef void (*TIMNetworkStatusListenerCallback)(int32_t status, int32_t code, const char* desc,
                                                 const void* user_data);
typedef void (*TIMKickedOfflineCallback)(const void* user_data);
typedef void (*TIMUserSigExpiredCallback)(const void* user_data);
typedef void (*TIMGroupTipsEventCallback)(const char* json_group_tip_array, const void* user_data);
// One line of the SDK's own log.
typedef void (*TIMLogCallback)(int32_t level, const char* log, const void* user_data);

// 0: the SDK is ready. The JSON is "{}" or carries
// `sdk_config_config_file_path`.
IMSDK_API int TIMInit(uint64_t sdk_app_id, const char* json_sdk_config);
IMSDK_API int TIMUninit(void);

// Listeners; a null callback with null user_data clears one.
IMSDK_API void TIMSetNetworkStatusListenerCallback(TIMNetworkStatusListenerCallback cb,
                                                   const void* user_data);
IMSDK_API void TIMSetKickedOfflineCallback(TIMKickedOfflineCallback cb, const void* user_data);
IMSDK_API void TIMSetUserSigExpiredCallback(TIMUserSigExpiredCallback cb, const void* user_data);
IMSDK_API void TIMSetGroupTipsEventCallback(TIMGroupTipsEventCallback cb, const void* user_data);
IMSDK_API void TIMSetLogCallback(TIMLogCallback cb, const void* user_data);

// Every function below answers 0 when the call is accepted; then its callback
// gives the outcome later. A non-zero answer means refused, and no callback
// follows.
IMSDK_API int TIMSetConfig(const char* json_config, TIMCommCallback cb, const void* user_data);
IMSDK_API int TIMLogin(const char* user_id, const char* user_sig, TIMCommCallback cb, const void* user_data);
IMSDK_API int TIMLogout(TIMCommCallback cb, const void* user_data);
IMSDK_API int TIMGroupJoin(const char* group_id, const char* hello_msg, TIMCommCallback cb,
                           const void* user_data);
IMSDK_API int TIMGroupQuit(const char* group_id, TIMCommCallback cb, const void* user_data);

// Subscribes to new messages; every later batch comes to the callback.
IMSDK_API void TIMAddRecvNewMsgCallback(TIMRecvNewMsgCallback cb, const void* user_data);

// Sends one message (JSON object) to a conversation. One callback per
// accepted send.
IMSDK_API int TIMMsgSendNewMsg(const char* conv_id, int conv_type, const char* json_msg_param,
                               TIMCommCallback cb, const void* user_data);

#ifdef __cplusplus
}
#endif
