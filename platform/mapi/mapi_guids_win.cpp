#include <windows.h>

// The SDK's header declares MAPI's identifiers, and no import library defines them: this file does.
#define USES_IID_IMAPISession
#define USES_IID_IMAPITable
#define USES_IID_IMAPIAdviseSink
#define USES_IID_IMAPIProp
#define USES_IID_IProfSect
#define USES_IID_IMsgStore
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IMAPIContainer
#define USES_IID_IMAPIFolder
#define USES_IID_IProfAdmin
#define USES_IID_IMsgServiceAdmin
#define USES_IID_IMAPIProgress
#define USES_IID_IProviderAdmin
#define USES_PS_MAPI
#define USES_PS_PUBLIC_STRINGS
#define INITGUID
#include <initguid.h>
#include <mapiguid.h>
