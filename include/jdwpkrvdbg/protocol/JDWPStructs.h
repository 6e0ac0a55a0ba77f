// The protocol vocabulary of the debugger: every JDWP command set, command,
// event kind, error code, tag and setting that the component uses, and the
// plain records that carry locations, classes, line and variable tables,
// values and frames between the decoders, the builders and the model.
//
// The names, spellings and numbers are part of the public interface that the
// IDE sees; the odd ones are kept on purpose and say so where they stand.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace jdwpkrvdbg {

enum COMMAND_SETS : int32_t {
    CMDSET_VirtualMachine = 1,
    CMDSET_ReferenceType = 2,
    CMDSET_ClassType = 3,
    CMDSET_ArrayType = 4,
    CMDSET_InterfaceType = 5,
    CMDSET_Method = 6,
    CMDSET_Field = 8,
    CMDSET_ObjectReference = 9,
    CMDSET_StringReference = 10,
    CMDSET_ThreadReference = 11,
    CMDSET_ThreadGroupReference = 12,
    CMDSET_ArrayReference = 13,
    CMDSET_ClassLoaderReference = 14,
    CMDSET_EventRequest = 15,
    CMDSET_StackFrame = 16,
    CMDSET_ClassObjectReference = 17,
    CMDSET_Event = 64,
};

enum VIRTUAL_MACHINE_CS : int32_t {
    VM_VERSION = 1,
    VM_CLASSES_BY_SIGNATURE = 2,
    VM_ALL_CLASSES = 3,
    VM_ALL_THREADS = 4,
    VM_TOP_LEVEL_THREAD_GROUPS = 5,
    VM_DISPOSE = 6,
    VM_ID_SIZES = 7,
    VM_SUSPEND = 8,
    VM_RESUME = 9,
    VM_EXIT = 10,
    VM_CREATE_STRING = 11,
    VM_CAPABILITIES = 12,
    VM_CLASSPATHS = 13,
    VM_DISPOSE_OBJECTS = 14,
    VM_HOLD_EVENTS = 15,
    VM_RELEASE_EVENTS = 16,
    VM_CAPABILITIES_NEW = 17,
    VM_REDEFINE_CLASS = 18,
    VM_SET_DEFAULT_STRATUM = 19,
    VM_ALL_CLASSES_WITH_GENERICS = 20,
};

enum REFERENCE_TYPE_CS : int32_t {
    RT_SIGNATURE = 1,
    RT_CLASSLOADER = 2,
    RT_MODIFIERS = 3,
    RT_FIELDS = 4,
    RT_METHODS = 5,
    RT_GETVALUES = 6,
    RT_SOURCEFILE = 7,
    RT_NESTEDTYPES = 8,
    RT_STATUS = 9,
    RT_INTERFACES = 10,
    RT_CLASSOBJECT = 11,
    RT_SOURCE_DEBUG_EXTENSION = 12,
    RT_SIGNATURE_WITH_GENERICS = 13,
    RT_FIELDS_WITH_GENERICS = 14,
    RT_METHODS_WITH_GENERICS = 15,
};

enum CLASS_TYPE_CS : int32_t {
    CT_SUPERCLASS = 1,
    CT_SET_VALUES = 2,
    CT_INVOKE_METHOD = 3,
    CT_NEW_INSTANCE = 4,
};

enum ARRAYTYPE_CS : int32_t {
    AT_NEW_INSTANCE = 1,
};

// Intended: despite its name this enumeration holds the commands of the
// Method command set (6); the name is part of the published interface.
enum INTERFACE_TYPE_CS : int32_t {
    MT_LINETABLE = 1,
    MT_VARIABLE_TABLE = 2,
    MT_BYTECODE = 3,
    MT_IS_OBSOLETE = 4,
    MT_VARIABLE_TABLE_WITH_GENERICS = 5,
};

// There is no member with value 4.
enum OBJECT_REFERENCE_CS : int32_t {
    OT_REFERENCE_TYPE = 1,
    OT_GET_VALUES = 2,
    OT_SET_VALUES = 3,
    OT_MONITOR_INFO = 5,
    OT_INVOKE_METHOD = 6,
    OT_DISABLE_COLLECTION = 7,
    OT_ENABLE_COLLECTION = 8,
    OT_IS_COLLECTION = 9,
};

enum ARRAY_REFERENCE_CS : int32_t {
    AR_LENGTH = 1,
    AR_GET_VALUES = 2,
    AR_SET_VALUES = 3,
};

enum STRING_REFERENCE_CS : int32_t {
    SR_VALUE = 1,
};

enum THREADREFERENCE_CS : int32_t {
    TR_Name = 1,
    TR_Suspend = 2,
    TR_Resume = 3,
    TR_Status = 4,
    TR_ThreadGroup = 5,
    TR_Frames = 6,
    TR_FrameCount = 7,
    TR_OwnedMonitors = 8,
    TR_CurrentContendedMonitor = 9,
    TR_Stop = 10,
    TR_Interrupt = 11,
    TR_SuspendCount = 12,
};

enum THREADGROUPREFERENCE_CS : int32_t {
    TG_Name = 1,
    TG_Parent = 2,
    TG_Children = 3,
};

// "BREKAPOINTS" is the member's published name; the misspelling is intended.
enum EVENT_REQUEST_CS : int32_t {
    ER_SET = 1,
    ER_CLEAR = 2,
    ER_CLEAR_BREKAPOINTS = 3,
};

enum STACKFRAME_CS : int32_t {
    SF_GETVALUE = 1,
    SF_SETVALUE = 2,
    SF_THISOBJECT = 3,
    SF_POPFRAMES = 4,
};

enum CLASS_OBJECT_REFERENCE_CS : int32_t {
    CR_REFLECTEDTYPE = 1,
};

enum EVENT_CS : int32_t {
    EV_COMPOSITE = 100,
};

// EK_VM_START and EK_VM_INIT are two names for one kind (90) on purpose: a
// switch on the kind treats them as one case.
enum EVENT_KIND : int32_t {
    EK_SINGLE_STEP = 1,
    EK_BREAKPOINT = 2,
    EK_FRAME_POP = 3,
    EK_EXCEPTION = 4,
    EK_USER_DEFINED = 5,
    EK_THREAD_START = 6,
    EK_THREAD_DEATH = 7,
    EK_CLASS_PREPARE = 8,
    EK_CLASS_UNLOAD = 9,
    EK_CLASS_LOAD = 10,
    EK_FIELD_ACCESS = 20,
    EK_FIELD_MODIFICATION = 21,
    EK_EXCEPTION_CATCH = 30,
    EK_METHOD_ENTRY = 40,
    EK_METHOD_EXIT = 41,
    EK_METHOD_EXIT_WITH_RETURN_VALUE = 42,
    EK_MONITOR_CONTENDED_ENTER = 43,
    EK_MONITOR_CONTENDED_ENTERED = 44,
    EK_MONITOR_WAIT = 45,
    EK_MONITOR_WAITED = 46,
    EK_VM_START = 90,
    EK_VM_INIT = 90,
    EK_VM_DEATH = 99,
    EK_VM_DISCONNECTED = 100,
};

enum TypeTag : int32_t {
    TT_CLASS = 1,
    TT_INTERFACE = 2,
    TT_ARRAY = 3,
};

enum VMState : int32_t {
    VMDead = 0,
    VMSuspend = 1,
    VMRunning = 2,
    VMLoading = 3,
};

// Each value is the ASCII code of the JDWP tag letter, so the tag byte read
// from the wire is the enumeration value itself.
enum JDWPJVarEnum : int32_t {
    VAR_BYTE = 66,         // B
    VAR_CHAR = 67,         // C
    VAR_DOUBLE = 68,       // D
    VAR_FLOAT = 70,        // F
    VAR_INT = 73,          // I
    VAR_LONG = 74,         // J
    VAR_OBJECT = 76,       // L
    VAR_SHORT = 83,        // S
    VAR_VOID = 86,         // V
    VAR_BOOLEAN = 90,      // Z
    VAR_ARRAY = 91,        // [
    VAR_CLASSOBJECT = 99,  // c
    VAR_THREADGROUP = 103, // g
    VAR_CLASSLOADER = 108, // l
    VAR_STRING = 115,      // s
    VAR_THREAD = 116,      // t
};

// Not a closed set: the reply header's error field may hold any code.
enum JDWPErrorCodes : int32_t {
    ERR_NONE = 0,
    ERR_INVALID_THREAD = 10,
    ERR_INVALID_THREAD_GROUP = 11,
    ERR_INVALID_PRIORITY = 12,
    ERR_THREAD_NOT_SUSPENDED = 13,
    ERR_THREAD_SUSPENDED = 14,
    ERR_THREAD_NOT_ALIVE = 15,
    ERR_INVALID_OBJECT = 20,
    ERR_INVALID_CLASS = 21,
    ERR_CLASS_NOT_PREPARED = 22,
    ERR_INVALID_METHODID = 23,
    ERR_INVALID_LOCATION = 24,
    ERR_INVALID_FIELDID = 25,
    ERR_INVALID_FRAMEID = 30,
    ERR_NO_MORE_FRAMES = 31,
    ERR_OPAQUE_FRAME = 32,
    ERR_NOT_CURRENT_FRAME = 33,
    ERR_TYPE_MISMATCH = 34,
    ERR_INVALID_SLOT = 35,
    ERR_DUPLICATE = 40,
    ERR_NOT_FOUND = 41,
    ERR_INVALID_MONITOR = 50,
    ERR_NOT_MONITOR_OWNER = 51,
    ERR_INTERRUPT = 52,
    ERR_INVALID_CLASS_FORMAT = 60,
    ERR_CIRCULAR_CLASS_DEFINITION = 61,
    ERR_FAILS_VERIFICATION = 62,
    ERR_ADD_METHOD_NOT_IMPLEMENTED = 63,
    ERR_SCHEMA_CHANGE_NOT_IMPLEMENTED = 64,
    ERR_INVALID_TYPESTATE = 65,
    ERR_HIERARCHY_CHANGE_NOT_IMPLEMENTED = 66,
    ERR_DELETE_METHOD_NOT_IMPLEMENTED = 67,
    ERR_UNSUPPORTED_VERSION = 68,
    ERR_NAMES_DONT_MATCH = 69,
    ERR_CLASS_MODIFIERS_CHANGE_NOT_IMPLEMENTED = 70,
    ERR_METHOD_MODIFIERS_CHANGE_NOT_IMPLEMENTED = 71,
    ERR_NOT_IMPLEMENTED = 99,
    ERR_NULL_POINTER = 100,
    ERR_ABSENT_INFORMATION = 101,
    ERR_INVALID_EVENT_TYPE = 102,
    ERR_ILLEGAL_ARGUMENT = 103,
    ERR_OUT_OF_MEMORY = 110,
    ERR_ACCESS_DENIED = 111,
    ERR_VM_DEAD = 112,
    ERR_INTERNAL = 113,
    ERR_UNATTACHED_THREAD = 115,
    ERR_INVALID_TAG = 500,
    ERR_ALREADY_INVOKING = 502,
    ERR_INVALID_INDEX = 503,
    ERR_INVALID_LENGTH = 504,
    ERR_INVALID_STRING = 506,
    ERR_INVALID_CLASS_LOADER = 507,
    ERR_INVALID_ARRAY = 508,
    ERR_TRANSPORT_LOAD = 509,
    ERR_TRANSPORT_INIT = 510,
    ERR_NATIVE_METHOD = 511,
    ERR_INVALID_COUNT = 512,
};

enum ThreadStatus : int32_t {
    THREAD_STATE_ZOMBIE = 0,
    THREAD_STATE_RUNNING = 1,
    THREAD_STATE_SLEEPING = 2,
    THREAD_STATE_MONITOR = 3,
    THREAD_STATE_WAIT = 4,
};

// The modifier kinds the component can send; no others exist in it.
enum ModifierKind : int32_t {
    MK_Count = 1,
    MK_ThreadOnly = 3, // RefLong carries the thread id
    MK_ClassMatch = 5,
    MK_ClassExclude = 6,
    MK_LocationOnly = 7,
    MK_ExceptionOnly = 8,
    MK_Step = 10,
    MK_SourceNameMatch = 12,
};

enum JDWPStepDepth : int32_t {
    SD_INTO = 0,
    SD_OVER = 1,
    SD_OUT = 2,
};

// The step-size and suspend-policy enumerations share the prefix SS_ on
// purpose (and SS_All is in mixed case on purpose); each lives in a scope of
// its own so that the names never collide.
enum class JDWPStepSize : int32_t {
    SS_MIN = 0,
    SS_LINE = 1,
};

enum class JDWPSuspendPolicy : int32_t {
    SS_NONE = 0,
    SS_EVENT_THREAD = 1,
    SS_All = 2,
};

// A run of already encoded event-request modifiers (the default exclusions).
struct JDWPDefaultFilter {
    int32_t FilterCount = 0;
    std::string FilterString;
    int32_t FilterStamp = 0;
};

struct JDWPStepStruct {
    double threadID = 0;
    JDWPStepDepth stepDepth = SD_INTO;
    JDWPStepSize StepSize = JDWPStepSize::SS_MIN;
};

struct JDWPJLocation {
    TypeTag ClassTypeTag = static_cast<TypeTag>(0);
    double ClassID = 0;
    double MethodID = 0;
    double Index = 0;
};

// One event-request modifier; only the fields that belong to Kind are read.
struct JDWPModifier {
    ModifierKind Kind = static_cast<ModifierKind>(0);
    JDWPJLocation RefLocation;
    std::string RefString;
    double RefLong = 0;
    JDWPStepStruct RefStep;
    bool RefCaught = false;
    bool RefUncaught = false;
};

// Intended: unlike JDWPJLocation this record holds the type tag as a double.
struct JDWPJClass {
    double ClassID = 0;
    double ClassTypeTag = 0;
    std::string ClassSignature;
    double ClassStatus = 0;
};

struct JDWPJLineTableItem {
    double lineCodeIndex = 0;
    double lineNumber = 0;
};

struct JDWPJLineTable {
    double startIndex = 0;
    double endIndex = 0;
    double LineCount = 0;
    std::vector<JDWPJLineTableItem> Lines;
};

struct JDWPJVariableTableSlot {
    double vt_codeIndex = 0;
    std::string vt_name;
    std::string vt_signature;
    double vt_length = 0;
    double vt_slot = 0;
};

struct JDWPJVariableTable {
    double argCnt = 0;
    double slotsCount = 0;
    std::vector<JDWPJVariableTableSlot> Slot;
};

struct JClassLineTable {
    double Line = 0;
    double Index = 0;
};

struct JDWPJVarValue {
    JDWPJVarEnum VarType = static_cast<JDWPJVarEnum>(0);
    double RefID = 0;
    std::string VarValue;
    bool Found = false;
    int32_t ReceiveStamp = 0;
};

struct JDWPJFrame {
    double FrameID = 0;
    JDWPJLocation FrameLocation;
};

} // namespace jdwpkrvdbg
