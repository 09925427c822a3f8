// platform/mapi/sdk/mapidefs.h: MAPI's constants and structures, off Windows. Layouts equal the SDK's.
#ifndef QUORVANE_PLATFORM_MAPI_SDK_MAPIDEFS_H_
#define QUORVANE_PLATFORM_MAPI_SDK_MAPIDEFS_H_

#include <cstddef>

#include "platform/com/com.h"

#define MAPI_DIM 1
#define hrSuccess 0

// Object types.
#define MAPI_STORE 0x00000001u
#define MAPI_ADDRBOOK 0x00000002u
#define MAPI_FOLDER 0x00000003u
#define MAPI_ABCONT 0x00000004u
#define MAPI_MESSAGE 0x00000005u
#define MAPI_MAILUSER 0x00000006u
#define MAPI_ATTACH 0x00000007u
#define MAPI_DISTLIST 0x00000008u
#define MAPI_PROFSECT 0x00000009u
#define MAPI_STATUS 0x0000000Au
#define MAPI_SESSION 0x0000000Bu

// Flags of opening, creating and saving.
#define MAPI_MODIFY 0x00000001u
#define MAPI_CREATE 0x00000002u
#define STREAM_APPEND 0x00000004u
#define MAPI_DEFERRED_ERRORS 0x00000008u
#define MAPI_BEST_ACCESS 0x00000010u
#define MAPI_ASSOCIATED 0x00000040u
#define MAPI_UNICODE 0x80000000u
#define fMapiUnicode 0u
#define KEEP_OPEN_READONLY 0x00000001u
#define KEEP_OPEN_READWRITE 0x00000002u
#define FORCE_SAVE 0x00000004u
#define MAPI_ACCESS_MODIFY 0x00000001u
#define MAPI_ACCESS_READ 0x00000002u
#define MAPI_ACCESS_DELETE 0x00000004u
#define MAPI_ACCESS_CREATE_HIERARCHY 0x00000008u
#define MAPI_ACCESS_CREATE_CONTENTS 0x00000010u
#define MAPI_ACCESS_CREATE_ASSOCIATED 0x00000020u
#define MAPI_MOVE 0x00000001u
#define MAPI_NOREPLACE 0x00000002u
#define MAPI_DECLINE_OK 0x00000004u
#define MAPI_DIALOG 0x00000008u
#define MAPI_USE_DEFAULT 0x00000040u
#define MAPI_NO_STRINGS 0x00000001u
#define MAPI_NO_IDS 0x00000002u

// Recipient types.
#define MAPI_ORIG 0
#define MAPI_TO 1
#define MAPI_CC 2
#define MAPI_BCC 3
#define MAPI_P1 0x10000000u
#define MAPI_SUBMITTED 0x80000000u

// Entry identifiers.
#define MAPI_SHORTTERM 0x80
#define MAPI_NOTRECIP 0x40
#define MAPI_THISSESSION 0x20
#define MAPI_NOW 0x10
#define MAPI_NOTRESERVED 0x08

struct ENTRYID {
    BYTE abFlags[4];
    BYTE ab[MAPI_DIM];
};
using LPENTRYID = ENTRYID*;
#define CbNewENTRYID(cb) (offsetof(ENTRYID, ab) + (cb))
#define CbENTRYID(cb) (offsetof(ENTRYID, ab) + (cb))

struct MAPIUID {
    BYTE ab[16];
};
using LPMAPIUID = MAPIUID*;

#define MAPI_ONE_OFF_UID                                                                               \
    {                                                                                                  \
        0x81, 0x2b, 0x1f, 0xa4, 0xbe, 0xa3, 0x10, 0x19, 0x9d, 0x6e, 0x00, 0xdd, 0x01, 0x0f, 0x54, 0x02 \
    }
#define MAPI_ONE_OFF_UNICODE 0x8000
#define MAPI_ONE_OFF_NO_RICH_INFO 0x0001

// Property types and tags.
#define MV_FLAG 0x1000u
#define MV_INSTANCE 0x2000u
#define MVI_FLAG (MV_FLAG | MV_INSTANCE)
#define PT_UNSPECIFIED 0u
#define PT_NULL 1u
#define PT_I2 2u
#define PT_LONG 3u
#define PT_R4 4u
#define PT_DOUBLE 5u
#define PT_CURRENCY 6u
#define PT_APPTIME 7u
#define PT_ERROR 10u
#define PT_BOOLEAN 11u
#define PT_OBJECT 13u
#define PT_I8 20u
#define PT_STRING8 30u
#define PT_UNICODE 31u
#define PT_SYSTIME 64u
#define PT_CLSID 72u
#define PT_BINARY 258u
#define PT_SHORT PT_I2
#define PT_I4 PT_LONG
#define PT_FLOAT PT_R4
#define PT_R8 PT_DOUBLE
#define PT_LONGLONG PT_I8
#define PT_TSTRING PT_STRING8
#define PT_MV_I2 (MV_FLAG | PT_I2)
#define PT_MV_LONG (MV_FLAG | PT_LONG)
#define PT_MV_R4 (MV_FLAG | PT_R4)
#define PT_MV_DOUBLE (MV_FLAG | PT_DOUBLE)
#define PT_MV_CURRENCY (MV_FLAG | PT_CURRENCY)
#define PT_MV_APPTIME (MV_FLAG | PT_APPTIME)
#define PT_MV_SYSTIME (MV_FLAG | PT_SYSTIME)
#define PT_MV_STRING8 (MV_FLAG | PT_STRING8)
#define PT_MV_BINARY (MV_FLAG | PT_BINARY)
#define PT_MV_UNICODE (MV_FLAG | PT_UNICODE)
#define PT_MV_CLSID (MV_FLAG | PT_CLSID)
#define PT_MV_I8 (MV_FLAG | PT_I8)
#define PT_MV_TSTRING PT_MV_STRING8

#define PROP_TYPE_MASK 0x0000FFFFu
#define PROP_TYPE(tag) (static_cast<ULONG>(tag) & PROP_TYPE_MASK)
#define PROP_ID(tag) (static_cast<ULONG>(tag) >> 16)
#define PROP_TAG(type, id) ((static_cast<ULONG>(id) << 16) | static_cast<ULONG>(type))
#define PROP_ID_NULL 0
#define PROP_ID_INVALID 0xFFFF
#define PR_NULL PROP_TAG(PT_NULL, PROP_ID_NULL)
#define CHANGE_PROP_TYPE(tag, type) ((0xFFFF0000u & (tag)) | (type))

struct SPropTagArray {
    ULONG cValues;
    ULONG aulPropTag[MAPI_DIM];
};
using LPSPropTagArray = SPropTagArray*;
#define CbNewSPropTagArray(count) (offsetof(SPropTagArray, aulPropTag) + (count) * sizeof(ULONG))
#define SizedSPropTagArray(count, name) \
    struct SPropTagArray_##name {       \
        ULONG cValues;                  \
        ULONG aulPropTag[count];        \
    } name

// Property values.
using CURRENCY = CY;

struct SBinary {
    ULONG cb;
    LPBYTE lpb;
};
using LPSBinary = SBinary*;

struct SShortArray {
    ULONG cValues;
    SHORT* lpi;
};
struct SGuidArray {
    ULONG cValues;
    GUID* lpguid;
};
struct SRealArray {
    ULONG cValues;
    float* lpflt;
};
struct SLongArray {
    ULONG cValues;
    LONG* lpl;
};
struct SLargeIntegerArray {
    ULONG cValues;
    LARGE_INTEGER* lpli;
};
struct SDateTimeArray {
    ULONG cValues;
    FILETIME* lpft;
};
struct SAppTimeArray {
    ULONG cValues;
    double* lpat;
};
struct SCurrencyArray {
    ULONG cValues;
    CURRENCY* lpcur;
};
struct SBinaryArray {
    ULONG cValues;
    SBinary* lpbin;
};
struct SDoubleArray {
    ULONG cValues;
    double* lpdbl;
};
struct SWStringArray {
    ULONG cValues;
    LPWSTR* lppszW;
};
struct SLPSTRArray {
    ULONG cValues;
    LPSTR* lppszA;
};

union _PV {
    SHORT i;
    LONG l;
    ULONG ul;
    float flt;
    double dbl;
    USHORT b;
    CURRENCY cur;
    double at;
    FILETIME ft;
    LPSTR lpszA;
    SBinary bin;
    LPWSTR lpszW;
    LPGUID lpguid;
    LARGE_INTEGER li;
    SShortArray MVi;
    SLongArray MVl;
    SRealArray MVflt;
    SDoubleArray MVdbl;
    SCurrencyArray MVcur;
    SAppTimeArray MVat;
    SDateTimeArray MVft;
    SBinaryArray MVbin;
    SLPSTRArray MVszA;
    SWStringArray MVszW;
    SGuidArray MVguid;
    SLargeIntegerArray MVli;
    SCODE err;
    LONG x;
};

struct SPropValue {
    ULONG ulPropTag;
    ULONG dwAlignPad;
    union _PV Value;
};
using LPSPropValue = SPropValue*;
static_assert(sizeof(SPropValue) == 24 && offsetof(SPropValue, Value) == 8);

struct SPropProblem {
    ULONG ulIndex;
    ULONG ulPropTag;
    SCODE scode;
};
using LPSPropProblem = SPropProblem*;

struct SPropProblemArray {
    ULONG cProblem;
    SPropProblem aProblem[MAPI_DIM];
};
using LPSPropProblemArray = SPropProblemArray*;
#define CbNewSPropProblemArray(count) (offsetof(SPropProblemArray, aProblem) + (count) * sizeof(SPropProblem))

using ENTRYLIST = SBinaryArray;
using LPENTRYLIST = ENTRYLIST*;

struct ADRENTRY {
    ULONG ulReserved1;
    ULONG cValues;
    LPSPropValue rgPropVals;
};
using LPADRENTRY = ADRENTRY*;

struct ADRLIST {
    ULONG cEntries;
    ADRENTRY aEntries[MAPI_DIM];
};
using LPADRLIST = ADRLIST*;
#define CbNewADRLIST(count) (offsetof(ADRLIST, aEntries) + (count) * sizeof(ADRENTRY))

struct SRow {
    ULONG ulAdrEntryPad;
    ULONG cValues;
    LPSPropValue lpProps;
};
using LPSRow = SRow*;
static_assert(sizeof(SRow) == 16 && sizeof(ADRENTRY) == sizeof(SRow));

struct SRowSet {
    ULONG cRows;
    SRow aRow[MAPI_DIM];
};
using LPSRowSet = SRowSet*;
#define CbNewSRowSet(count) (offsetof(SRowSet, aRow) + (count) * sizeof(SRow))
#define CbSRowSet(rows) (offsetof(SRowSet, aRow) + static_cast<std::size_t>((rows)->cRows) * sizeof(SRow))

// The contract of MAPI's memory: one block from the first allocates everything that hangs on it.
using ALLOCATEBUFFER = SCODE(ULONG size, LPVOID* buffer);
using ALLOCATEMORE = SCODE(ULONG size, LPVOID object, LPVOID* buffer);
using FREEBUFFER = ULONG(LPVOID buffer);
using LPALLOCATEBUFFER = ALLOCATEBUFFER*;
using LPALLOCATEMORE = ALLOCATEMORE*;
using LPFREEBUFFER = FREEBUFFER*;

using LPCIID = const IID*;

struct MAPIERROR {
    ULONG ulVersion;
    LPTSTR lpszError;
    LPTSTR lpszComponent;
    ULONG ulLowLevelError;
    ULONG ulContext;
};
using LPMAPIERROR = MAPIERROR*;

// Notifications.
#define fnevCriticalError 0x00000001u
#define fnevNewMail 0x00000002u
#define fnevObjectCreated 0x00000004u
#define fnevObjectDeleted 0x00000008u
#define fnevObjectModified 0x00000010u
#define fnevObjectMoved 0x00000020u
#define fnevObjectCopied 0x00000040u
#define fnevSearchComplete 0x00000080u
#define fnevTableModified 0x00000100u
#define fnevStatusObjectModified 0x00000200u
#define fnevReservedForMapi 0x40000000u
#define fnevExtended 0x80000000u

#define TABLE_CHANGED 1
#define TABLE_ERROR 2
#define TABLE_ROW_ADDED 3
#define TABLE_ROW_DELETED 4
#define TABLE_ROW_MODIFIED 5
#define TABLE_SORT_DONE 6
#define TABLE_RESTRICT_DONE 7
#define TABLE_SETCOL_DONE 8
#define TABLE_RELOAD 9

struct ERROR_NOTIFICATION {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    SCODE scode;
    ULONG ulFlags;
    LPMAPIERROR lpMAPIError;
};

struct NEWMAIL_NOTIFICATION {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    ULONG cbParentID;
    LPENTRYID lpParentID;
    ULONG ulFlags;
    LPTSTR lpszMessageClass;
    ULONG ulMessageFlags;
};

struct OBJECT_NOTIFICATION {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    ULONG ulObjType;
    ULONG cbParentID;
    LPENTRYID lpParentID;
    ULONG cbOldID;
    LPENTRYID lpOldID;
    ULONG cbOldParentID;
    LPENTRYID lpOldParentID;
    LPSPropTagArray lpPropTagArray;
};

struct TABLE_NOTIFICATION {
    ULONG ulTableEvent;
    HRESULT hResult;
    SPropValue propIndex;
    SPropValue propPrior;
    SRow row;
    ULONG ulPad;
};

struct EXTENDED_NOTIFICATION {
    ULONG ulEvent;
    ULONG cb;
    LPBYTE pbEventParameters;
};

struct STATUS_OBJECT_NOTIFICATION {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    ULONG cValues;
    LPSPropValue lpPropVals;
};

struct NOTIFICATION {
    ULONG ulEventType;
    ULONG ulAlignPad;
    union {
        ERROR_NOTIFICATION err;
        NEWMAIL_NOTIFICATION newmail;
        OBJECT_NOTIFICATION obj;
        TABLE_NOTIFICATION tab;
        EXTENDED_NOTIFICATION ext;
        STATUS_OBJECT_NOTIFICATION statobj;
    } info;
};
using LPNOTIFICATION = NOTIFICATION*;
static_assert(sizeof(TABLE_NOTIFICATION) == 80 && sizeof(NOTIFICATION) == 88);

// Named properties.
#define MNID_ID 0u
#define MNID_STRING 1u

struct MAPINAMEID {
    LPGUID lpguid;
    ULONG ulKind;
    union {
        LONG lID;
        LPWSTR lpwstrName;
    } Kind;
};
using LPMAPINAMEID = MAPINAMEID*;

// Tables.
#define TBLSTAT_COMPLETE 0u
#define TBLTYPE_SNAPSHOT 0u
#define TBLTYPE_KEYSET 1u
#define TBLTYPE_DYNAMIC 2u
#define TABLE_SORT_ASCEND 0u
#define TABLE_SORT_DESCEND 1u
#define TABLE_SORT_COMBINE 2u
#define TBL_ALL_COLUMNS 0x00000001u
#define TBL_LEAF_ROW 1u
#define TBL_EMPTY_CATEGORY 2u
#define TBL_EXPANDED_CATEGORY 3u
#define TBL_COLLAPSED_CATEGORY 4u
#define TBL_NOWAIT 0x00000001u
#define TBL_ASYNC 0x00000001u
#define TBL_BATCH 0x00000002u
#define TBL_NOADVANCE 0x00000001u
#define DIR_BACKWARD 0x00000001u
#define CONVENIENT_DEPTH 0x00000001u

struct SSortOrder {
    ULONG ulPropTag;
    ULONG ulOrder;
};
using LPSSortOrder = SSortOrder*;

struct SSortOrderSet {
    ULONG cSorts;
    ULONG cCategories;
    ULONG cExpanded;
    SSortOrder aSort[MAPI_DIM];
};
using LPSSortOrderSet = SSortOrderSet*;
#define CbNewSSortOrderSet(count) (offsetof(SSortOrderSet, aSort) + (count) * sizeof(SSortOrder))
#define SizedSSortOrderSet(count, name) \
    struct SSortOrderSet_##name {       \
        ULONG cSorts;                   \
        ULONG cCategories;              \
        ULONG cExpanded;                \
        SSortOrder aSort[count];        \
    } name

using BOOKMARK = ULONG;
#define BOOKMARK_BEGINNING (static_cast<BOOKMARK>(0))
#define BOOKMARK_CURRENT (static_cast<BOOKMARK>(1))
#define BOOKMARK_END (static_cast<BOOKMARK>(2))

#define FL_FULLSTRING 0x00000000u
#define FL_SUBSTRING 0x00000001u
#define FL_PREFIX 0x00000002u
#define FL_IGNORECASE 0x00010000u
#define FL_IGNORENONSPACE 0x00020000u
#define FL_LOOSE 0x00040000u

#define RES_AND 0u
#define RES_OR 1u
#define RES_NOT 2u
#define RES_CONTENT 3u
#define RES_PROPERTY 4u
#define RES_COMPAREPROPS 5u
#define RES_BITMASK 6u
#define RES_SIZE 7u
#define RES_EXIST 8u
#define RES_SUBRESTRICTION 9u
#define RES_COMMENT 10u
#define RELOP_LT 0u
#define RELOP_LE 1u
#define RELOP_GT 2u
#define RELOP_GE 3u
#define RELOP_EQ 4u
#define RELOP_NE 5u
#define RELOP_RE 6u
#define BMR_EQZ 0u
#define BMR_NEZ 1u

struct SRestriction;
using LPSRestriction = SRestriction*;

struct SAndRestriction {
    ULONG cRes;
    LPSRestriction lpRes;
};
struct SOrRestriction {
    ULONG cRes;
    LPSRestriction lpRes;
};
struct SNotRestriction {
    ULONG ulReserved;
    LPSRestriction lpRes;
};
struct SContentRestriction {
    ULONG ulFuzzyLevel;
    ULONG ulPropTag;
    LPSPropValue lpProp;
};
struct SBitMaskRestriction {
    ULONG relBMR;
    ULONG ulPropTag;
    ULONG ulMask;
};
struct SPropertyRestriction {
    ULONG relop;
    ULONG ulPropTag;
    LPSPropValue lpProp;
};
struct SComparePropsRestriction {
    ULONG relop;
    ULONG ulPropTag1;
    ULONG ulPropTag2;
};
struct SSizeRestriction {
    ULONG relop;
    ULONG ulPropTag;
    ULONG cb;
};
struct SExistRestriction {
    ULONG ulReserved1;
    ULONG ulPropTag;
    ULONG ulReserved2;
};
struct SSubRestriction {
    ULONG ulSubObject;
    LPSRestriction lpRes;
};
struct SCommentRestriction {
    ULONG cValues;
    LPSRestriction lpRes;
    LPSPropValue lpProp;
};

struct SRestriction {
    ULONG rt;
    union {
        SComparePropsRestriction resCompareProps;
        SAndRestriction resAnd;
        SOrRestriction resOr;
        SNotRestriction resNot;
        SContentRestriction resContent;
        SPropertyRestriction resProperty;
        SBitMaskRestriction resBitMask;
        SSizeRestriction resSize;
        SExistRestriction resExist;
        SSubRestriction resSub;
        SCommentRestriction resComment;
    } res;
};

// Stores and folders.
#define STORE_ENTRYID_UNIQUE 0x00000001u
#define STORE_READONLY 0x00000002u
#define STORE_SEARCH_OK 0x00000004u
#define STORE_MODIFY_OK 0x00000008u
#define STORE_CREATE_OK 0x00000010u
#define STORE_ATTACH_OK 0x00000020u
#define STORE_OLE_OK 0x00000040u
#define STORE_SUBMIT_OK 0x00000080u
#define STORE_NOTIFY_OK 0x00000100u
#define STORE_MV_PROPS_OK 0x00000200u
#define STORE_CATEGORIZE_OK 0x00000400u
#define STORE_RTF_OK 0x00000800u
#define STORE_RESTRICTION_OK 0x00001000u
#define STORE_SORT_OK 0x00002000u
#define FOLDER_ROOT 0u
#define FOLDER_GENERIC 1u
#define FOLDER_SEARCH 2u
#define STOP_SEARCH 0x00000001u
#define RESTART_SEARCH 0x00000002u
#define RECURSIVE_SEARCH 0x00000004u
#define SHALLOW_SEARCH 0x00000008u
#define FOREGROUND_SEARCH 0x00000010u
#define BACKGROUND_SEARCH 0x00000020u
#define SEARCH_RUNNING 0x00000001u
#define SEARCH_REBUILD 0x00000002u
#define SEARCH_RECURSIVE 0x00000004u
#define SEARCH_FOREGROUND 0x00000008u
#define OPEN_IF_EXISTS 0x00000001u
#define MESSAGE_MOVE 0x00000001u
#define MESSAGE_DIALOG 0x00000002u
#define FOLDER_MOVE 0x00000001u
#define COPY_SUBFOLDERS 0x00000010u
#define DEL_MESSAGES 0x00000001u
#define FOLDER_DIALOG 0x00000002u
#define DEL_FOLDERS 0x00000004u
#define DEL_ASSOCIATED 0x00000008u
#define FOLDER_IPM_SUBTREE_VALID 0x00000001u
#define FOLDER_IPM_INBOX_VALID 0x00000002u
#define FOLDER_IPM_OUTBOX_VALID 0x00000004u
#define FOLDER_IPM_WASTEBASKET_VALID 0x00000008u
#define FOLDER_IPM_SENTMAIL_VALID 0x00000010u
#define MDB_NO_DIALOG 0x00000001u
#define MDB_WRITE 0x00000004u
#define MDB_TEMPORARY 0x00000020u
#define MDB_NO_MAIL 0x00000080u

// Messages and attachments.
#define FORCE_SUBMIT 0x00000001u
#define MSGFLAG_READ 0x00000001u
#define MSGFLAG_UNMODIFIED 0x00000002u
#define MSGFLAG_SUBMIT 0x00000004u
#define MSGFLAG_UNSENT 0x00000008u
#define MSGFLAG_HASATTACH 0x00000010u
#define MSGFLAG_FROMME 0x00000020u
#define MSGFLAG_ASSOCIATED 0x00000040u
#define MSGFLAG_RESEND 0x00000080u
#define MSGFLAG_RN_PENDING 0x00000100u
#define MSGFLAG_NRN_PENDING 0x00000200u
#define MODRECIP_ADD 0x00000002u
#define MODRECIP_MODIFY 0x00000004u
#define MODRECIP_REMOVE 0x00000008u
#define SUPPRESS_RECEIPT 0x00000001u
#define CLEAR_READ_FLAG 0x00000004u
#define GENERATE_RECEIPT_ONLY 0x00000010u
#define CLEAR_RN_PENDING 0x00000020u
#define CLEAR_NRN_PENDING 0x00000040u
#define ATTACH_DIALOG 0x00000001u
#define PRIO_URGENT 1
#define PRIO_NORMAL 0
#define PRIO_NONURGENT (-1)
#define SENSITIVITY_NONE 0u
#define SENSITIVITY_PERSONAL 1u
#define SENSITIVITY_PRIVATE 2u
#define SENSITIVITY_COMPANY_CONFIDENTIAL 3u
#define IMPORTANCE_LOW 0
#define IMPORTANCE_NORMAL 1
#define IMPORTANCE_HIGH 2
#define NO_ATTACHMENT 0u
#define ATTACH_BY_VALUE 1u
#define ATTACH_BY_REFERENCE 2u
#define ATTACH_BY_REF_RESOLVE 3u
#define ATTACH_BY_REF_ONLY 4u
#define ATTACH_EMBEDDED_MSG 5u
#define ATTACH_OLE 6u
#define DT_MAILUSER 0u

// Sessions and profiles.
using FLAGS = ULONG;
#define MAPI_LOGON_UI 0x00000001u
#define MAPI_NEW_SESSION 0x00000002u
#define MAPI_ALLOW_OTHERS 0x00000008u
#define MAPI_EXPLICIT_PROFILE 0x00000010u
#define MAPI_EXTENDED 0x00000020u
#define MAPI_FORCE_DOWNLOAD 0x00001000u
#define MAPI_SERVICE_UI_ALWAYS 0x00002000u
#define MAPI_NO_MAIL 0x00008000u
#define MAPI_PASSWORD_UI 0x00020000u
#define MAPI_TIMEOUT_SHORT 0x00100000u
#define MAPI_DEFAULT_SERVICES 0x00000001u
#define MAPI_STORE_PROVIDER 33u
#define SERVICE_DEFAULT_STORE 0x00000001u
#define SERVICE_SINGLE_COPY 0x00000002u
#define STATUS_DEFAULT_STORE 0x00000002u

#define MAPI_INIT_VERSION 0
#define MAPI_MULTITHREAD_NOTIFICATIONS 0x00000001u

struct MAPIINIT_0 {
    ULONG ulVersion;
    ULONG ulFlags;
};
using LPMAPIINIT_0 = MAPIINIT_0*;

#endif  // QUORVANE_PLATFORM_MAPI_SDK_MAPIDEFS_H_
