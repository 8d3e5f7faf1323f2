#pragma once

// The four entry points of the optional toolkit `tkadv`, looked up by name in libtkadv.so. The
// library calls them at load and unload only.

extern "C" {

// The toolkit asks through these for its profile and service settings: `name` is the setting,
// the answer goes to `value` (at most `capacity` bytes). Non-zero when a value was given.
typedef int (*TK_Settings_Callback)(const char* name, char* value, int capacity);

// 1 or 4095 is success.
typedef int (*TK_Library_Initialization_Function)(TK_Settings_Callback profile,
                                                  TK_Settings_Callback service, void* reserved);
// Fills in the application identifier. 1 or 4000 is success.
typedef int (*TK_Register_Application_Function)(int* applicationId, const char* title);
typedef const char* (*TK_Error_Message_Function)(int code);
typedef int (*TK_Library_Release_Function)(void);
}
