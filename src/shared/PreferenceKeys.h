// Keys of the app's preference store. Every key reads as its type's zero value until written;
// nothing registers defaults, and the app relies on that.
#pragma once

namespace shared {

inline constexpr const char* IS_PIN_SET = "IS_PIN_SET";                  // bool
inline constexpr const char* SAVE_PIN = "SAVE_PIN";                      // string
inline constexpr const char* CHANGE_TITLE = "CHANGE_TITLE";              // string
inline constexpr const char* SINGLE_TIME_CALL = "SINGLE_TIME_CALL";      // bool
inline constexpr const char* ANSWER = "ANSWER";                          // string
inline constexpr const char* SELECTED_QUESTION = "SELECTED_QUESTION";    // string
inline constexpr const char* VAULT_ITEM_COUNT = "VAULT_ITEM_COUNT";      // integer
inline constexpr const char* FULLSERVICECOUNT = "FULLSERVICECOUNT";      // integer
inline constexpr const char* OPEN_ADS_COUNT = "OPEN_ADS_COUNT";          // integer
inline constexpr const char* KEY_CONTROLLER_STATE_CHECK = "KEY_CONTROLLER_STATE_CHECK";  // bool
inline constexpr const char* LOGIN_STATUS = "LOGIN_STATUS";              // bool
inline constexpr const char* CHECK_STATUS = "CHECK_STATUS";              // bool
inline constexpr const char* CONTACT_DATA_NAME = "CONTACT_DATA_NAME";    // array of strings
inline constexpr const char* CONTACT_DATA_NUMBER = "CONTACT_DATA_NUMBER";  // array of strings

}  // namespace shared
