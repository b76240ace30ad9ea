/*
 * GenTL_KESTA.h: public interface of the KESTA GenTL Producer for GigE Vision
 * (GenTL_KESTA.cti).
 *
 * Usable from C and C++. The standard functions have C linkage and live in
 * the global namespace; a consumer that loads the producer at run time finds
 * them by their plain names and can use the P<Name> pointer types below. The
 * producer's own extensions are C++ functions in namespace GenTL, exported
 * under their qualified (mangled) names.
 *
 * All handles are opaque pointers. Sizes are size_t, which is 64 bits wide on
 * every platform the producer is built for.
 */
#ifndef GENTL_KESTA_H
#define GENTL_KESTA_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define GC_IMPORT_EXPORT __attribute__((visibility("default")))
#else
#define GC_IMPORT_EXPORT
#endif
#define GC_CALLTYPE

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------- */
/* Basic types                                                               */
/* ------------------------------------------------------------------------- */

typedef int32_t GC_ERROR;
typedef uint8_t bool8_t;

typedef void* TL_HANDLE;       /* system module */
typedef void* IF_HANDLE;       /* interface module (one network adapter) */
typedef void* DEV_HANDLE;      /* device module (one camera) */
typedef void* DS_HANDLE;       /* data stream module */
typedef void* PORT_HANDLE;     /* any module's port, or a camera's remote port */
typedef void* BUFFER_HANDLE;   /* an announced buffer */
typedef void* EVENTSRC_HANDLE; /* a module that can register events */
typedef void* EVENT_HANDLE;    /* a registered event */

/* Timeout value that waits for ever. */
#define GENTL_INFINITE 0xFFFFFFFFFFFFFFFFULL

/* Result codes of every function. */
enum GC_ERROR_LIST {
    GC_ERR_SUCCESS = 0,
    GC_ERR_ERROR = -1001,
    GC_ERR_NOT_INITIALIZED = -1002,
    GC_ERR_NOT_IMPLEMENTED = -1003,
    GC_ERR_RESOURCE_IN_USE = -1004,
    GC_ERR_ACCESS_DENIED = -1005,
    GC_ERR_INVALID_HANDLE = -1006,
    GC_ERR_INVALID_ID = -1007,
    GC_ERR_NO_DATA = -1008,
    GC_ERR_INVALID_PARAMETER = -1009,
    GC_ERR_IO = -1010,
    GC_ERR_TIMEOUT = -1011,
    GC_ERR_ABORT = -1012,
    GC_ERR_INVALID_BUFFER = -1013,
    GC_ERR_NOT_AVAILABLE = -1014,
    GC_ERR_INVALID_ADDRESS = -1015,
    GC_ERR_BUFFER_TOO_SMALL = -1016,
    GC_ERR_INVALID_INDEX = -1017,
    GC_ERR_PARSING_CHUNK_DATA = -1018,
    GC_ERR_INVALID_VALUE = -1019,
    GC_ERR_RESOURCE_EXHAUSTED = -1020,
    GC_ERR_OUT_OF_MEMORY = -1021,
    GC_ERR_BUSY = -1022,
    GC_ERR_CUSTOM_ID = -10000
};

/* Type codes of the piType argument of the info functions. */
enum INFO_DATATYPE_LIST {
    INFO_DATATYPE_UNKNOWN = 0,
    INFO_DATATYPE_STRING = 1,
    INFO_DATATYPE_STRINGLIST = 2,
    INFO_DATATYPE_INT16 = 3,
    INFO_DATATYPE_UINT16 = 4,
    INFO_DATATYPE_INT32 = 5,
    INFO_DATATYPE_UINT32 = 6,
    INFO_DATATYPE_INT64 = 7,
    INFO_DATATYPE_UINT64 = 8,
    INFO_DATATYPE_FLOAT64 = 9,
    INFO_DATATYPE_PTR = 10,
    INFO_DATATYPE_BOOL8 = 11,
    INFO_DATATYPE_SIZET = 12,
    INFO_DATATYPE_BUFFER = 13,
    INFO_DATATYPE_CUSTOM_ID = 1000
};
typedef int32_t INFO_DATATYPE;

/* ------------------------------------------------------------------------- */
/* Info commands                                                             */
/* ------------------------------------------------------------------------- */

/* GCGetInfo, TLGetInfo */
enum TL_INFO_CMD_LIST {
    TL_INFO_ID = 0,
    TL_INFO_VENDOR = 1,
    TL_INFO_MODEL = 2,
    TL_INFO_VERSION = 3,
    TL_INFO_TLTYPE = 4,
    TL_INFO_NAME = 5,
    TL_INFO_PATHNAME = 6,
    TL_INFO_DISPLAYNAME = 7,
    TL_INFO_CHAR_ENCODING = 8,
    TL_INFO_GENTL_VER_MAJOR = 9,
    TL_INFO_GENTL_VER_MINOR = 10,
    TL_INFO_CUSTOM_ID = 1000
};
typedef int32_t TL_INFO_CMD;

/* Answer of TL_INFO_CHAR_ENCODING. */
enum TL_CHAR_ENCODING_LIST { TL_CHAR_ENCODING_ASCII = 0, TL_CHAR_ENCODING_UTF8 = 1 };
typedef int32_t TL_CHAR_ENCODING;

/* TLGetInterfaceInfo, IFGetInfo */
enum INTERFACE_INFO_CMD_LIST {
    INTERFACE_INFO_ID = 0,
    INTERFACE_INFO_DISPLAYNAME = 1,
    INTERFACE_INFO_TLTYPE = 2,
    INTERFACE_INFO_CUSTOM_ID = 1000,
    INTERFACE_INFO_GEV_MAC_ADDRESS = 1001,
    INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS = 1002,
    INTERFACE_INFO_GEV_SUBNET_MASK = 1003
};
typedef int32_t INTERFACE_INFO_CMD;

/* IFGetDeviceInfo, DevGetInfo */
enum DEVICE_INFO_CMD_LIST {
    DEVICE_INFO_ID = 0,
    DEVICE_INFO_VENDOR = 1,
    DEVICE_INFO_MODEL = 2,
    DEVICE_INFO_TLTYPE = 3,
    DEVICE_INFO_DISPLAYNAME = 4,
    DEVICE_INFO_ACCESS_STATUS = 5,
    DEVICE_INFO_USER_DEFINED_NAME = 6,
    DEVICE_INFO_SERIAL_NUMBER = 7,
    DEVICE_INFO_VERSION = 8,
    DEVICE_INFO_TIMESTAMP_FREQUENCY = 9,
    DEVICE_INFO_CUSTOM_ID = 1000,
    DEVICE_INFO_GEV_IP_ADDRESS = 1002,
    DEVICE_INFO_GEV_SUBNET_MASK = 1003,
    DEVICE_INFO_GEV_MAC_ADDRESS = 1004,
    DEVICE_INFO_GEV_DEFAULT_GATEWAY = 1005,
    DEVICE_INFO_GEV_CONFIG_DHCP = 1006,
    DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP = 1007,
    DEVICE_INFO_GEV_CONFIG_LLA = 1008,
    DEVICE_INFO_IS_CONNECTED = 1009
};
typedef int32_t DEVICE_INFO_CMD;

/* iOpenFlags of IFOpenDevice */
enum DEVICE_ACCESS_FLAGS_LIST {
    DEVICE_ACCESS_UNKNOWN = 0,
    DEVICE_ACCESS_NONE = 1,
    DEVICE_ACCESS_READONLY = 2,
    DEVICE_ACCESS_CONTROL = 3,
    DEVICE_ACCESS_EXCLUSIVE = 4,
    DEVICE_ACCESS_CUSTOM_ID = 1000
};
typedef int32_t DEVICE_ACCESS_FLAGS;

/* Answer of DEVICE_INFO_ACCESS_STATUS */
enum DEVICE_ACCESS_STATUS_LIST {
    DEVICE_ACCESS_STATUS_UNKNOWN = 0,
    DEVICE_ACCESS_STATUS_READWRITE = 1,
    DEVICE_ACCESS_STATUS_READONLY = 2,
    DEVICE_ACCESS_STATUS_NOACCESS = 3,
    DEVICE_ACCESS_STATUS_BUSY = 4,
    DEVICE_ACCESS_STATUS_OPEN_READWRITE = 5,
    DEVICE_ACCESS_STATUS_OPEN_READONLY = 6,
    DEVICE_ACCESS_STATUS_CUSTOM_ID = 1000
};
typedef int32_t DEVICE_ACCESS_STATUS;

/* DSGetInfo */
enum STREAM_INFO_CMD_LIST {
    STREAM_INFO_ID = 0,
    STREAM_INFO_NUM_DELIVERED = 1,
    STREAM_INFO_NUM_UNDERRUN = 2,
    STREAM_INFO_NUM_ANNOUNCED = 3,
    STREAM_INFO_NUM_QUEUED = 4,
    STREAM_INFO_NUM_AWAIT_DELIVERY = 5,
    STREAM_INFO_NUM_STARTED = 6,
    STREAM_INFO_PAYLOAD_SIZE = 7,
    STREAM_INFO_IS_GRABBING = 8,
    STREAM_INFO_DEFINES_PAYLOADSIZE = 9,
    STREAM_INFO_TLTYPE = 10,
    STREAM_INFO_NUM_CHUNKS_MAX = 11,
    STREAM_INFO_BUF_ANNOUNCE_MIN = 12,
    STREAM_INFO_BUF_ALIGNMENT = 13,
    STREAM_INFO_CUSTOM_ID = 1000,
    STREAM_INFO_BUFFER_HANDLING_MODE = 1001,
    STREAM_INFO_MISSED_IMAGE_COUNT = 1002,
    STREAM_INFO_MISSED_PACKET_COUNT = 1003,
    STREAM_INFO_TOTAL_MISSED_IMAGE_COUNT = 1004,
    STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT = 1005,
    STREAM_INFO_PACKET_RESEND_ENABLE = 1006,
    STREAM_INFO_AUTO_PACKET_SIZE_ENABLE = 1008,
    STREAM_INFO_MAX_RESEND_REQUESTS = 1010,
    STREAM_INFO_MULTICAST_ENABLE = 1011,
    STREAM_INFO_EVS_OUTPUT_FORMAT = 1014,
    STREAM_INFO_EVS_BIT_DEPTH = 1015,
    STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME = 1016,
    STREAM_INFO_FRAME_GENERATOR_FPS = 1017,
    STREAM_INFO_EVS_COLOR_THEME = 1018,
    STREAM_INFO_EVS_EVENT_RATE = 1019,
    STREAM_INFO_EVS_GVSP_FRAME_RATE = 1020,
    STREAM_INFO_EVS_LINK_THROUGHPUT = 1021,
    STREAM_INFO_EVS_EVENT_BUFFER_POOL_SIZE = 1022,
    STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET = 1023
};
typedef int32_t STREAM_INFO_CMD;

/* DSGetBufferInfo */
enum BUFFER_INFO_CMD_LIST {
    BUFFER_INFO_BASE = 0,
    BUFFER_INFO_SIZE = 1,
    BUFFER_INFO_USER_PTR = 2,
    BUFFER_INFO_TIMESTAMP = 3,
    BUFFER_INFO_NEW_DATA = 4,
    BUFFER_INFO_IS_QUEUED = 5,
    BUFFER_INFO_IS_ACQUIRING = 6,
    BUFFER_INFO_IS_INCOMPLETE = 7,
    BUFFER_INFO_TLTYPE = 8,
    BUFFER_INFO_SIZE_FILLED = 9,
    BUFFER_INFO_WIDTH = 10,
    BUFFER_INFO_HEIGHT = 11,
    BUFFER_INFO_XOFFSET = 12,
    BUFFER_INFO_YOFFSET = 13,
    BUFFER_INFO_XPADDING = 14,
    BUFFER_INFO_YPADDING = 15,
    BUFFER_INFO_FRAMEID = 16,
    BUFFER_INFO_IMAGEPRESENT = 17,
    BUFFER_INFO_IMAGEOFFSET = 18,
    BUFFER_INFO_PAYLOADTYPE = 19,
    BUFFER_INFO_PIXELFORMAT = 20,
    BUFFER_INFO_PIXELFORMAT_NAMESPACE = 21,
    BUFFER_INFO_DELIVERED_IMAGEHEIGHT = 22,
    BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE = 23,
    BUFFER_INFO_CHUNKLAYOUTID = 24,
    BUFFER_INFO_FILENAME = 25,
    BUFFER_INFO_PIXEL_ENDIANNESS = 26,
    BUFFER_INFO_DATA_SIZE = 27,
    BUFFER_INFO_TIMESTAMP_NS = 28,
    BUFFER_INFO_DATA_LARGER_THAN_BUFFER = 29,
    BUFFER_INFO_CONTAINS_CHUNKDATA = 30,
    BUFFER_INFO_CUSTOM_ID = 1000
};
typedef int32_t BUFFER_INFO_CMD;

/* DSGetBufferPartInfo (multi-part buffers are not produced) */
enum BUFFER_PART_INFO_CMD_LIST {
    BUFFER_PART_INFO_BASE = 0,
    BUFFER_PART_INFO_DATA_SIZE = 1,
    BUFFER_PART_INFO_DATA_TYPE = 2,
    BUFFER_PART_INFO_DATA_FORMAT = 3,
    BUFFER_PART_INFO_DATA_FORMAT_NAMESPACE = 4,
    BUFFER_PART_INFO_WIDTH = 5,
    BUFFER_PART_INFO_HEIGHT = 6,
    BUFFER_PART_INFO_XOFFSET = 7,
    BUFFER_PART_INFO_YOFFSET = 8,
    BUFFER_PART_INFO_XPADDING = 9,
    BUFFER_PART_INFO_SOURCE_ID = 10,
    BUFFER_PART_INFO_DELIVERED_IMAGEHEIGHT = 11,
    BUFFER_PART_INFO_CUSTOM_ID = 1000
};
typedef int32_t BUFFER_PART_INFO_CMD;

/* Answer of BUFFER_INFO_PAYLOADTYPE. The producer also reports 1001 and
   1002 for image payloads in its own custom pixel formats (without and with
   chunks) and passes 16385 (image with chunks) through unchanged. */
enum PAYLOADTYPE_INFO_IDS {
    PAYLOAD_TYPE_UNKNOWN = 0,
    PAYLOAD_TYPE_IMAGE = 1,
    PAYLOAD_TYPE_RAW_DATA = 2,
    PAYLOAD_TYPE_FILE = 3,
    PAYLOAD_TYPE_CHUNK_DATA = 4,
    PAYLOAD_TYPE_JPEG = 5,
    PAYLOAD_TYPE_JPEG2000 = 6,
    PAYLOAD_TYPE_H264 = 7,
    PAYLOAD_TYPE_CHUNK_ONLY = 8,
    PAYLOAD_TYPE_DEVICE_SPECIFIC = 9,
    PAYLOAD_TYPE_MULTI_PART = 10,
    PAYLOAD_TYPE_CUSTOM_ID = 1000
};

/* Answer of BUFFER_INFO_PIXELFORMAT_NAMESPACE */
enum PIXELFORMAT_NAMESPACE_IDS {
    PIXELFORMAT_NAMESPACE_UNKNOWN = 0,
    PIXELFORMAT_NAMESPACE_GEV = 1,
    PIXELFORMAT_NAMESPACE_IIDC = 2,
    PIXELFORMAT_NAMESPACE_PFNC_16BIT = 3,
    PIXELFORMAT_NAMESPACE_PFNC_32BIT = 4,
    PIXELFORMAT_NAMESPACE_CUSTOM_ID = 1000
};

/* Answer of BUFFER_INFO_PIXEL_ENDIANNESS */
enum PIXELENDIANNESS_IDS {
    PIXELENDIANNESS_UNKNOWN = 0,
    PIXELENDIANNESS_LITTLE = 1,
    PIXELENDIANNESS_BIG = 2
};

/* GCGetPortInfo */
enum PORT_INFO_CMD_LIST {
    PORT_INFO_ID = 0,
    PORT_INFO_VENDOR = 1,
    PORT_INFO_MODEL = 2,
    PORT_INFO_TLTYPE = 3,
    PORT_INFO_MODULE = 4,
    PORT_INFO_LITTLE_ENDIAN = 5,
    PORT_INFO_BIG_ENDIAN = 6,
    PORT_INFO_ACCESS_READ = 7,
    PORT_INFO_ACCESS_WRITE = 8,
    PORT_INFO_ACCESS_NA = 9,
    PORT_INFO_ACCESS_NI = 10,
    PORT_INFO_VERSION = 11,
    PORT_INFO_PORTNAME = 12,
    PORT_INFO_CUSTOM_ID = 1000
};
typedef int32_t PORT_INFO_CMD;

/* GCGetPortURLInfo */
enum URL_INFO_CMD_LIST {
    URL_INFO_URL = 0,
    URL_INFO_SCHEMA_VER_MAJOR = 1,
    URL_INFO_SCHEMA_VER_MINOR = 2,
    URL_INFO_FILE_VER_MAJOR = 3,
    URL_INFO_FILE_VER_MINOR = 4,
    URL_INFO_FILE_VER_SUBMINOR = 5,
    URL_INFO_FILE_SHA1_HASH = 6,
    URL_INFO_FILE_REGISTER_ADDRESS = 7,
    URL_INFO_FILE_SIZE = 8,
    URL_INFO_SCHEME = 9,
    URL_INFO_FILENAME = 10,
    URL_INFO_CUSTOM_ID = 1000
};
typedef int32_t URL_INFO_CMD;

/* Answer of URL_INFO_SCHEME */
enum URL_SCHEME_IDS {
    URL_SCHEME_LOCAL = 0,
    URL_SCHEME_HTTP = 1,
    URL_SCHEME_FILE = 2,
    URL_SCHEME_CUSTOM_ID = 1000
};
typedef int32_t URL_SCHEME_ID;

/* ------------------------------------------------------------------------- */
/* Events                                                                    */
/* ------------------------------------------------------------------------- */

/* iEventID of GCRegisterEvent. Data streams serve EVENT_NEW_BUFFER, devices
   EVENT_REMOTE_DEVICE. */
enum EVENT_TYPE_LIST {
    EVENT_ERROR = 0,
    EVENT_NEW_BUFFER = 1,
    EVENT_FEATURE_INVALIDATE = 2,
    EVENT_FEATURE_CHANGE = 3,
    EVENT_REMOTE_DEVICE = 4,
    EVENT_MODULE = 5,
    EVENT_CUSTOM_ID = 1000
};
typedef int32_t EVENT_TYPE;

/* EventGetInfo */
enum EVENT_INFO_CMD_LIST {
    EVENT_EVENT_TYPE = 0,
    EVENT_NUM_IN_QUEUE = 1,
    EVENT_NUM_FIRED = 2,
    EVENT_SIZE_MAX = 3,
    EVENT_INFO_DATA_SIZE_MAX = 4,
    EVENT_INFO_CUSTOM_ID = 1000
};
typedef int32_t EVENT_INFO_CMD;

/* EventGetDataInfo */
enum EVENT_DATA_INFO_CMD_LIST {
    EVENT_DATA_ID = 0,
    EVENT_DATA_VALUE = 1,
    EVENT_DATA_NUMID = 2,
    EVENT_DATA_CUSTOM_ID = 1000
};
typedef int32_t EVENT_DATA_INFO_CMD;

/* Datum of an EVENT_NEW_BUFFER event, as EventGetData delivers it. */
typedef struct S_EVENT_NEW_BUFFER {
    BUFFER_HANDLE BufferHandle; /* the filled buffer */
    void* pUserPointer;         /* pPrivate of its announcement */
} EVENT_NEW_BUFFER_DATA;
typedef struct S_EVENT_NEW_BUFFER S_EVENT_NEW_BUFFER;

/* ------------------------------------------------------------------------- */
/* Acquisition                                                               */
/* ------------------------------------------------------------------------- */

/* iStartFlags of DSStartAcquisition */
enum ACQ_START_FLAGS_LIST {
    ACQ_START_FLAGS_DEFAULT = 0,
    ACQ_START_FLAGS_CUSTOM_ID = 1000,
    ACQ_START_FLAGS_GVSP_LEGACY_ID = 1001 /* 16-bit block ids even if 64-bit ones work */
};
typedef int32_t ACQ_START_FLAGS;

/* iStopFlags of DSStopAcquisition */
enum ACQ_STOP_FLAGS_LIST {
    ACQ_STOP_FLAGS_DEFAULT = 0,
    ACQ_STOP_FLAGS_KILL = 1,
    ACQ_STOP_FLAGS_CUSTOM_ID = 1000
};
typedef int32_t ACQ_STOP_FLAGS;

/* iOperation of DSFlushQueue */
enum ACQ_QUEUE_TYPE_LIST {
    ACQ_QUEUE_INPUT_TO_OUTPUT = 0,
    ACQ_QUEUE_OUTPUT_DISCARD = 1,
    ACQ_QUEUE_ALL_TO_INPUT = 2,
    ACQ_QUEUE_UNQUEUED_TO_INPUT = 3,
    ACQ_QUEUE_ALL_DISCARD = 4,
    ACQ_QUEUE_CUSTOM_ID = 1000,
    ACQ_QUEUE_OUTPUT_TO_INPUT = 1001,
    ACQ_QUEUE_FILL_TO_OUTPUT = 1002,
    ACQ_QUEUE_FILL_DISCARD = 1003
};
typedef int32_t ACQ_QUEUE_TYPE;

/* Info commands of a device's message channel (reached through the
   device's port registers, not through an exported function). */
enum MC_INFO_CMD_LIST {
    MC_INFO_ID = 0,
    MC_INFO_NUM_DELIVERED = 1,
    MC_INFO_NUM_UNDERRUN = 2,
    MC_INFO_NUM_ANNOUNCED = 3,
    MC_INFO_NUM_QUEUED = 4,
    MC_INFO_NUM_AWAIT_DELIVERY = 5,
    MC_INFO_NUM_STARTED = 6,
    MC_INFO_PAYLOAD_SIZE = 7,
    MC_INFO_IS_GRABBING = 8,
    MC_INFO_TLTYPE = 9,
    MC_INFO_BUF_ANNOUNCE_MIN = 10,
    MC_INFO_BUF_ALIGNMENT = 11
};
typedef int32_t MC_INFO_CMD;

/* ------------------------------------------------------------------------- */
/* Records                                                                   */
/* ------------------------------------------------------------------------- */

/* One access of GCReadPortStacked / GCWritePortStacked. */
typedef struct S_PORT_REGISTER_STACK_ENTRY {
    uint64_t Address; /* port address */
    void* pBuffer;    /* data to write, or room for the data read */
    size_t Size;      /* bytes to access; updated with the bytes accessed */
} PORT_REGISTER_STACK_ENTRY;
typedef struct S_PORT_REGISTER_STACK_ENTRY S_PORT_REGISTER_STACK_ENTRY;

/* One chunk of DSGetBufferChunkData. */
typedef struct S_SINGLE_CHUNK_DATA {
    uint64_t ChunkID;
    ptrdiff_t ChunkOffset; /* from the start of the buffer */
    size_t ChunkLength;
} SINGLE_CHUNK_DATA;
typedef struct S_SINGLE_CHUNK_DATA S_SINGLE_CHUNK_DATA;

/* ------------------------------------------------------------------------- */
/* Exported functions                                                        */
/* ------------------------------------------------------------------------- */

/* Declares an exported function and the matching pointer type P<name>. */
#define KESTA_GENTL_FUNCTION(name, args)                                                           \
    GC_IMPORT_EXPORT GC_ERROR GC_CALLTYPE name args;                                               \
    typedef GC_ERROR(GC_CALLTYPE* P##name) args

/* Library */
KESTA_GENTL_FUNCTION(GCInitLib, (void));
KESTA_GENTL_FUNCTION(GCCloseLib, (void));
KESTA_GENTL_FUNCTION(GCGetInfo,
                     (TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(GCGetLastError, (GC_ERROR * piErrorCode, char* sErrText, size_t* piSize));

/* Ports, on the handle of any module or on a device's remote port */
KESTA_GENTL_FUNCTION(GCReadPort,
                     (PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(GCWritePort,
                     (PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(GCGetPortURL, (PORT_HANDLE hPort, char* sURL, size_t* piSize));
KESTA_GENTL_FUNCTION(GCGetPortInfo, (PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd,
                                     INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(GCGetNumPortURLs, (PORT_HANDLE hPort, uint32_t* piNumURLs));
KESTA_GENTL_FUNCTION(GCGetPortURLInfo,
                     (PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd,
                      INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(GCReadPortStacked, (PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                                         size_t* piNumEntries));
KESTA_GENTL_FUNCTION(GCWritePortStacked, (PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                                          size_t* piNumEntries));

/* Events */
KESTA_GENTL_FUNCTION(GCRegisterEvent,
                     (EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent));
KESTA_GENTL_FUNCTION(GCUnregisterEvent, (EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID));
KESTA_GENTL_FUNCTION(EventGetData,
                     (EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize, uint64_t iTimeout));
KESTA_GENTL_FUNCTION(EventGetDataInfo, (EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize,
                                        EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                        void* pOutBuffer, size_t* piOutSize));
KESTA_GENTL_FUNCTION(EventGetInfo, (EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd,
                                    INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(EventFlush, (EVENT_HANDLE hEvent));
KESTA_GENTL_FUNCTION(EventKill, (EVENT_HANDLE hEvent));

/* System */
KESTA_GENTL_FUNCTION(TLOpen, (TL_HANDLE * phTL));
KESTA_GENTL_FUNCTION(TLClose, (TL_HANDLE hTL));
KESTA_GENTL_FUNCTION(TLGetInfo, (TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                 void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(TLGetNumInterfaces, (TL_HANDLE hTL, uint32_t* piNumIfaces));
KESTA_GENTL_FUNCTION(TLGetInterfaceID,
                     (TL_HANDLE hTL, uint32_t iIndex, char* sIfaceID, size_t* piSize));
KESTA_GENTL_FUNCTION(TLGetInterfaceInfo,
                     (TL_HANDLE hTL, const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd,
                      INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(TLOpenInterface, (TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface));
KESTA_GENTL_FUNCTION(TLUpdateInterfaceList, (TL_HANDLE hTL, bool8_t* pbChanged, uint64_t iTimeout));

/* Interface */
KESTA_GENTL_FUNCTION(IFClose, (IF_HANDLE hIface));
KESTA_GENTL_FUNCTION(IFGetInfo, (IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd,
                                 INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(IFGetNumDevices, (IF_HANDLE hIface, uint32_t* piNumDevices));
KESTA_GENTL_FUNCTION(IFGetDeviceID,
                     (IF_HANDLE hIface, uint32_t iIndex, char* sDeviceID, size_t* piSize));
KESTA_GENTL_FUNCTION(IFUpdateDeviceList, (IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout));
KESTA_GENTL_FUNCTION(IFGetDeviceInfo,
                     (IF_HANDLE hIface, const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd,
                      INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(IFOpenDevice, (IF_HANDLE hIface, const char* sDeviceID,
                                    DEVICE_ACCESS_FLAGS iOpenFlags, DEV_HANDLE* phDevice));
KESTA_GENTL_FUNCTION(IFGetParentTL, (IF_HANDLE hIface, TL_HANDLE* phSystem));

/* Device */
KESTA_GENTL_FUNCTION(DevClose, (DEV_HANDLE hDevice));
KESTA_GENTL_FUNCTION(DevGetPort, (DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice));
KESTA_GENTL_FUNCTION(DevGetNumDataStreams, (DEV_HANDLE hDevice, uint32_t* piNumDataStreams));
KESTA_GENTL_FUNCTION(DevGetDataStreamID,
                     (DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID, size_t* piSize));
KESTA_GENTL_FUNCTION(DevOpenDataStream,
                     (DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream));
KESTA_GENTL_FUNCTION(DevGetInfo, (DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd,
                                  INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(DevGetParentIF, (DEV_HANDLE hDevice, IF_HANDLE* phIface));
/* Sends an action command to the device; executeTime 0 acts at once. */
KESTA_GENTL_FUNCTION(DevSendActionCommand,
                     (DEV_HANDLE hDevice, uint32_t iDeviceKey, uint32_t iGroupKey,
                      uint32_t iGroupMask, uint64_t iExecuteTime));

/* Data stream */
KESTA_GENTL_FUNCTION(DSClose, (DS_HANDLE hDataStream));
KESTA_GENTL_FUNCTION(DSAnnounceBuffer, (DS_HANDLE hDataStream, void* pBuffer, size_t iSize,
                                        void* pPrivate, BUFFER_HANDLE* phBuffer));
KESTA_GENTL_FUNCTION(DSAllocAndAnnounceBuffer, (DS_HANDLE hDataStream, size_t iSize, void* pPrivate,
                                                BUFFER_HANDLE* phBuffer));
KESTA_GENTL_FUNCTION(DSFlushQueue, (DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation));
KESTA_GENTL_FUNCTION(DSStartAcquisition,
                     (DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire));
KESTA_GENTL_FUNCTION(DSStopAcquisition, (DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags));
KESTA_GENTL_FUNCTION(DSGetInfo, (DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd,
                                 INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(DSGetBufferID,
                     (DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer));
KESTA_GENTL_FUNCTION(DSRevokeBuffer, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** ppBuffer,
                                      void** ppPrivate));
KESTA_GENTL_FUNCTION(DSQueueBuffer, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer));
KESTA_GENTL_FUNCTION(DSGetBufferInfo,
                     (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd,
                      INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));
KESTA_GENTL_FUNCTION(DSGetParentDev, (DS_HANDLE hDataStream, DEV_HANDLE* phDevice));
/* Chunks and multi-part buffers are not supported: these three always
   answer GC_ERR_NOT_IMPLEMENTED, even before GCInitLib. */
KESTA_GENTL_FUNCTION(DSGetBufferChunkData, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                            SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks));
KESTA_GENTL_FUNCTION(DSGetNumBufferParts,
                     (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t* piNumParts));
KESTA_GENTL_FUNCTION(DSGetBufferPartInfo, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                           uint32_t iPartIndex, BUFFER_PART_INFO_CMD iInfoCmd,
                                           INFO_DATATYPE* piType, void* pBuffer, size_t* piSize));

#undef KESTA_GENTL_FUNCTION

#ifdef __cplusplus
} /* extern "C" */

/* ------------------------------------------------------------------------- */
/* The producer's own extensions (C++ linkage)                               */
/* ------------------------------------------------------------------------- */

namespace GenTL {

/* Forces an IP configuration onto the camera with the given MAC address
   (low 48 bits), on the interface's network. ip and subnetMask must not be
   0; a gateway of 0 is allowed. */
GC_IMPORT_EXPORT GC_ERROR IFForceIp(IF_HANDLE hIface, uint64_t macAddress, uint32_t ip,
                                    uint32_t subnetMask, uint32_t gateway);

/* Adds a camera IPv4 address that IFUpdateDeviceList asks directly,
   besides the broadcast. */
GC_IMPORT_EXPORT GC_ERROR IFAddUnicastDiscoveryDevice(IF_HANDLE hIface, uint32_t ip);

/* 0xFFFFFFFF empties the set of unicast discovery addresses. */
GC_IMPORT_EXPORT GC_ERROR IFRemoveUnicastDiscoveryDevice(IF_HANDLE hIface, uint32_t ip);

/* *piCount comes in as the capacity of pIPs and goes out as the number of
   addresses written. */
GC_IMPORT_EXPORT GC_ERROR IFGetUnicastDiscoveryDevices(IF_HANDLE hIface, uint32_t* pIPs,
                                                       uint32_t* piCount);

/* Waits up to iTimeout milliseconds for the leader of the next block. */
GC_IMPORT_EXPORT GC_ERROR DSWaitForNextLeader(DS_HANDLE hDataStream, uint64_t iTimeout);

/* Forgets a leader that arrived before the next DSWaitForNextLeader. */
GC_IMPORT_EXPORT GC_ERROR DSResetWaitForNextLeader(DS_HANDLE hDataStream);

/* Tunes packet resend for the next DSStartAcquisition: retry window in
   frames, frame rate in frames per second, two settings strings, and the
   geometry that replaces a one-column carrier of variable-length blocks.
   Note: the handle is not checked for being a data stream. */
GC_IMPORT_EXPORT GC_ERROR DSSetupResendRetryParams(DS_HANDLE hDataStream,
                                                   uint64_t iRetryWindowFrames, double frameRate,
                                                   const char* sFirst, const char* sSecond,
                                                   int32_t iWidth, int32_t iHeight);

/* Pointer types for finding the extensions with dlsym() by mangled name. */
typedef GC_ERROR (*PIFForceIp)(IF_HANDLE, uint64_t, uint32_t, uint32_t, uint32_t);
typedef GC_ERROR (*PIFAddUnicastDiscoveryDevice)(IF_HANDLE, uint32_t);
typedef GC_ERROR (*PIFRemoveUnicastDiscoveryDevice)(IF_HANDLE, uint32_t);
typedef GC_ERROR (*PIFGetUnicastDiscoveryDevices)(IF_HANDLE, uint32_t*, uint32_t*);
typedef GC_ERROR (*PDSWaitForNextLeader)(DS_HANDLE, uint64_t);
typedef GC_ERROR (*PDSResetWaitForNextLeader)(DS_HANDLE);
typedef GC_ERROR (*PDSSetupResendRetryParams)(DS_HANDLE, uint64_t, double, const char*, const char*,
                                              int32_t, int32_t);

} // namespace GenTL

#endif /* __cplusplus */

#endif /* GENTL_KESTA_H */
