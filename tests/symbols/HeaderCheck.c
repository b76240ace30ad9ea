/* The public header compiles as strict C: types, records and the pointer
   types of the functions are all usable without C++. */
#include "GenTL_KESTA.h"

int kesta_header_check(void);

int kesta_header_check(void) {
    PGCInitLib init = GCInitLib;
    S_PORT_REGISTER_STACK_ENTRY entry = {0, 0, 0};
    PORT_REGISTER_STACK_ENTRY same = entry;
    S_SINGLE_CHUNK_DATA chunk = {0, 0, 0};
    S_EVENT_NEW_BUFFER datum = {0, 0};
    bool8_t flag = 1;
    INFO_DATATYPE type = INFO_DATATYPE_STRING;
    return (init != 0) + (int)same.Size + (int)chunk.ChunkLength + (datum.pUserPointer != 0) +
           flag + type + (GENTL_INFINITE != 0);
}
