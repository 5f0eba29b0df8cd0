/*
 * unitydrv.h - host interface of the Unity symbolic-addressing driver (libunitydrv.so).
 *
 * An operator-panel runtime (the host) loads libunitydrv.so and calls the 14 entry
 * points below to read and write the variables of M340/M580 controllers by name over
 * Modbus TCP (Unity function code 0x5A, TCP port 502).
 *
 * Calling order: the description calls (GetAttributeEx, GetDeviceTableEx,
 * GetCommandSizeLimitInfo, GetDataType) at any time; InitEx before GetInitCmdEx2;
 * StartDeviceEx once per device; GetInitCmdEx2 then CheckInitCmdResponseEx2; any number
 * of rounds of OutputFilterEx followed by InputFilterEx; Timeout whenever the host gives
 * up waiting; CloseDevice last. Calls come from one thread at a time; the driver starts
 * no threads and every exchange with the controller blocks inside the call (one second
 * at most per reply).
 *
 * Failures: results, not texts (see each entry point). A reply too short for a field the
 * driver reads raises std::out_of_range out of GetInitCmdEx2 or OutputFilterEx; a C++ host
 * catches it there and recovers with Timeout, then GetInitCmdEx2. What the driver does not
 * check, and what the host does about it, is listed after the limits below; the trace
 * (UNITYDRV_TRACE) shows each case as it happens.
 *
 * Ownership: the host owns every record it passes; the driver reads or fills them in
 * place. A device handle is an opaque pointer owned by the driver from StartDeviceEx to
 * CloseDevice.
 *
 * Record layouts. The records are byte-exact images of the host's own records: packed,
 * little-endian, fields possibly unaligned. On the target (32-bit ARM Linux) their sizes
 * are those given below (_gui_request_ 4196 bytes, _input_data_ 4104, _system_info 20).
 * On a 64-bit build a pointer field keeps its offset and takes 8 bytes, so the stride of
 * _gui_request_ is 4192 + sizeof(void*) and that of _system_info is 16 + sizeof(void*).
 * The static assertions at the end of this file hold on both.
 */
#ifndef UNITYDRV_UNITYDRV_H
#define UNITYDRV_UNITYDRV_H

#include <stddef.h>
#include <stdint.h>

#include "unitydrv/version.h"

#ifdef __cplusplus
#define UNITYDRV_EXTERN_C extern "C"
#define UNITYDRV_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define UNITYDRV_EXTERN_C
#define UNITYDRV_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#if defined(UNITYDRV_BUILDING)
#define UNITYDRV_API UNITYDRV_EXTERN_C __attribute__((visibility("default")))
#else
#define UNITYDRV_API UNITYDRV_EXTERN_C
#endif

#pragma pack(push, 1)

/* Which tag a request addresses, and which part of it (17 bytes, inside _gui_request_). */
typedef struct tag_ref {
  uint32_t tag_index;     /* 0: position of the tag in the tag file */
  uint8_t type_code_a;    /* 4: PLC type code (see below), used when type_select is 0 */
  uint8_t type_select;    /* 5: non-zero: use type_code_b instead */
  uint8_t type_code_b;    /* 6: alternative PLC type code */
  uint8_t unused_7[2];    /* 7..8: not read */
  uint8_t bit_spec;       /* 9: 0 no bit; 255 bit = low byte of array_index; else bit = value - 1 */
  uint8_t index_off;      /* 10: non-zero forces the array index to 0 */
  uint8_t unused_11[2];   /* 11..12: not read */
  uint16_t array_index;   /* 13: element index in an array tag; 65535 means 0 */
  uint16_t element_count; /* 15: number of elements to read or write */
} tag_ref;

/* One host request (an array of them is passed to ORMAND_DRV_OutputFilterEx). */
typedef struct _gui_request_ {
  uint8_t host_0[4];      /* 0..3: the host's own */
  uint8_t status[5];      /* 4..8: cleared to 0 when the request has been handled */
  uint8_t host_9[27];     /* 9..35: the host's own */
  uint8_t request_kind;   /* 36: 1 or 2 write the first element only; otherwise read */
  uint8_t host_37[15];    /* 37..51: the host's own */
  union {
    uint16_t write_count; /* 52: number of 16-bit units in write_words */
    struct {
      uint8_t write_count_low;
      uint8_t write_bit_value; /* 53: bit writes: non-zero sets, zero clears */
    } bit;
  } write;
  uint16_t write_words[2058]; /* 54..4169: write data, one unit per entry */
  uint8_t host_4170;          /* 4170 */
  tag_ref ref;                /* 4171..4187 */
  uint8_t host_4188[4];       /* 4188..4191 */
  void* device_handle;        /* 4192: handle from StartDeviceEx (read from the first element) */
} _gui_request_;

/* One result (an array of them is filled by ORMAND_DRV_InputFilterEx). */
typedef struct _input_data_ {
  uint8_t result_status;         /* 0: 0 data valid, 2 failed */
  uint8_t result_code;           /* 1: 5 normally, 10 when the session failed */
  uint8_t host_2[2];             /* 2..3 */
  uint32_t request_id;           /* 4: copied from the matching _system_info */
  uint16_t result_words[2048];   /* 8..4103: the values as 16-bit units */
} _input_data_;

/* Per-position bookkeeping passed to ORMAND_DRV_InputFilterEx. */
typedef struct _system_info {
  uint32_t info_valid;    /* 0: of the first element: zero means nothing to return */
  uint32_t request_id;    /* 4 */
  uint8_t host_8[8];      /* 8..15: not used by the driver */
  void* device_handle;    /* 16: handle (read from the first element) */
} _system_info;

/* Passed to ORMAND_DRV_InputFilterEx and never read. */
typedef struct _frame_data_ _frame_data_;

/* Filled by ORMAND_DRV_GetAttributeEx. The name field holds the first 50 characters
 * of the driver name with no terminator: the numbers overwrite the rest. */
typedef struct unitydrv_attributes {
  char name[50];          /* 0 */
  uint16_t value_50;      /* 50: 171 */
  uint16_t driver_number; /* 52: 578 */
  uint8_t value_54;       /* 54: 0 */
  char name_55;           /* 55: still the name literal's character there ('n') */
  uint16_t value_56;      /* 56: 200 */
  uint16_t value_58;      /* 58: 0 */
  uint16_t value_60;      /* 60: 0 */
  uint8_t host_62[6];     /* 62..67: left as they were */
  uint16_t value_68;      /* 68: 0 */
  uint16_t value_70;      /* 70: 1 */
  uint8_t host_72[2];     /* 72..73: left as they were */
  uint16_t value_74;      /* 74: 271 */
  uint16_t value_76;      /* 76: 0 */
  uint16_t value_78;      /* 78: 37 */
  uint16_t value_80;      /* 80: 0 */
} unitydrv_attributes;

/* One row of the address type table (ORMAND_DRV_GetDeviceTableEx copies 17 of them):
 * 15 NUL-padded text fields (kind, name, PLC type code, ...). */
typedef struct unitydrv_address_type {
  char field[15][30];
} unitydrv_address_type;

/* Filled by ORMAND_DRV_GetCommandSizeLimitInfo: nine NUL-padded text fields. */
typedef struct unitydrv_size_limit {
  char field[9][10];
} unitydrv_size_limit;

/* Query of ORMAND_DRV_GetDataType: the PLC type code is byte 4. */
typedef struct unitydrv_type_query {
  uint8_t host_0[4];
  uint8_t type_code;
} unitydrv_type_query;

/* Parameter record of ORMAND_DRV_InitEx: the controller's IPv4 address a.b.c.d. */
typedef struct unitydrv_init_params {
  uint8_t host_0[8];
  uint16_t octet4;   /* 8: d */
  uint16_t octet3;   /* 10: c */
  uint8_t octet1;    /* 12: a (low byte of the u16 at 12) */
  uint8_t octet2;    /* 13: b (high byte) */
} unitydrv_init_params;

/* Two-word record returned by value by GetInitCmdEx2 and OutputFilterEx. */
typedef struct unitydrv_result {
  uint8_t host_0[2];  /* 0..1: the host's own (see OutputFilterEx) */
  uint8_t byte_2;     /* 2 */
  uint8_t byte_3;     /* 3: 8 after OutputFilterEx */
  uint32_t word_4;    /* 4: 0 */
} unitydrv_result;

#pragma pack(pop)

/* PLC type codes: the element type of a tag (element size in bytes). */
enum {
  UNITYDRV_TYPE_BYTE = 2,      /* 1 */
  UNITYDRV_TYPE_WORD = 3,      /* 2 */
  UNITYDRV_TYPE_DWORD = 4,     /* 4 */
  UNITYDRV_TYPE_UDINT = 6,     /* 4 */
  UNITYDRV_TYPE_LWORD = 7,     /* 8 */
  UNITYDRV_TYPE_LINT = 8,      /* 8 */
  UNITYDRV_TYPE_ULINT = 9,     /* 8 */
  UNITYDRV_TYPE_LREAL = 10,    /* 8 */
  UNITYDRV_TYPE_UINT = 11,     /* 2 */
  UNITYDRV_TYPE_USINT = 12,    /* 1 */
  UNITYDRV_TYPE_BOOL = 193,    /* 1 (one bit value) */
  UNITYDRV_TYPE_SINT = 194,    /* 1 */
  UNITYDRV_TYPE_INT = 195,     /* 2 */
  UNITYDRV_TYPE_DINT = 196,    /* 4 */
  UNITYDRV_TYPE_REAL = 202,    /* 4 */
  UNITYDRV_TYPE_BITARRAY = 211, /* 1 (one bit value); array_index counts bits */
  UNITYDRV_TYPE_STRING = 212   /* 1 per character */
};

/*
 * Host contract: how values travel, what the results mean, the limits, the exceptions.
 *
 * Units. write_words and result_words are arrays of 16-bit units (little-endian, like
 * every field). Per PLC type code, one element of a tag sits in them like this:
 *
 *   type code                      result_words (read)          write_words (write)
 *   BOOL 193, BitArray 211         1 unit: 0 or 1 (*)           none: write_bit_value
 *   SINT 194, BYTE 2, USINT 12     1 unit, byte in the low 8    1 entry, its low byte
 *                                  bits, high bits 0 (no sign)(*)
 *   INT 195, WORD 3, UINT 11       1 unit                       1 entry
 *   DINT 196, REAL 202, DWORD 4,   2 units, low 16 bits first   2 entries, low 16 bits
 *   UDINT 6                        (REAL: IEEE-754 single bits) first
 *   LWORD 7, LINT 8, ULINT 9,      4 units, least significant   4 entries, least
 *   LREAL 10                       first (LREAL: IEEE-754       significant first
 *                                  double bits)
 *   STRING 212                     1 unit per character, the    2 characters per entry,
 *                                  character in the low byte    first one in the low byte
 *
 *   On an offline device a whole-value write takes every type from write_words, BOOL
 *   and BitArray included (one byte an element), whatever write_count says: element k
 *   is the element size of bytes at byte k x size of write_words. For the 1-byte types
 *   SINT, BYTE, USINT and STRING element k is therefore byte k of write_words (two
 *   elements an entry, the first in the low byte): as online for STRING, but not for
 *   SINT, BYTE and USINT, which online take the low byte of entry k.
 *
 *   (*) the controller's byte as it is, for every 1-byte code (BOOL, BitArray, SINT,
 *       BYTE, USINT; STRING excepted), except for an EBOOL: when the variable's dictionary
 *       type id is 25, or when the read item is marked single_element (a one-element
 *       BitArray item, format 0x21, whose array type has element type 25), the unit is 1
 *       when the byte apart from its bit 1 is non-zero, else 0 (a byte of exactly 2 reads
 *       as 0).
 *
 * A read of element_count n delivers the n elements one after the other from
 * result_words[0]. A STRING is read as n characters (the terminating zero is one of them
 * when n reaches it). Bit addressing (tag_ref.bit_spec non-zero) on a read gives n units
 * of 65535 (bit set) or 0: unit k is bit (b + k) of the first element only, b being the
 * addressed bit, taken from a byte (types 2, 12, 194, 212), a 16-bit (3, 11, 195) or a
 * 32-bit value (4, 6, 196, 202); bits 32 and above, and other types, give 0.
 *
 * Writes. request_kind 1 or 2 in the first request makes the call a write of that request
 * alone (the others are not looked at); write_count is the number of write_words entries
 * supplied. BOOL and BitArray send the one byte write_bit_value, which shares its byte
 * with the high byte of write_count. The count argument of OutputFilterEx gives how many
 * consecutive array elements, from tag_ref.array_index on, receive the same data (1 for
 * an ordinary write; a STRING is always written once). A write with bit addressing on a
 * word type sends nothing: it only sets or clears the bit in a value the driver keeps for
 * the device, so write whole words to change bits in the controller. The driver does not
 * report whether a write was accepted; read the tag back to know.
 *
 * Results. InputFilterEx delivers what the last OutputFilterEx read, one _input_data_ per
 * request position:
 *   result_status 0, result_code 5: the values are in result_words;
 *   result_status 2, result_code 10: the last exchange with the controller failed (no or
 *     bad reply); every position of that round carries it, once: the next round tries
 *     again on the same connection.
 *   request_id is copied from the _system_info of the same position.
 * _system_info[0].info_valid 0 means the host has nothing to collect: only results[0] is
 * preset (status 0, code 5, request_id 0); a failure still pending is reported anyway.
 * The status bytes 4..8 of the first request are cleared when OutputFilterEx has handled
 * the call (on an offline device a read sets byte 8 to 1). The unitydrv_result returned by
 * GetInitCmdEx2 and OutputFilterEx carries no error: OutputFilterEx returns byte_3 = 8 and
 * word_4 = 0; GetInitCmdEx2 reports through *code.
 *
 * Limits.
 *   - At most 255 requests per OutputFilterEx read. With more, nothing is read and the
 *     results of the next InputFilterEx carry status 0 with the values of an earlier
 *     round: split larger reads into several calls.
 *   - One read is one reply, received in one piece of at most 2,048 bytes of which 2,038
 *     are values: the value bytes of all requests of one call (element size times
 *     element_count; BOOL, BitArray, STRING 1 byte an element) must stay within 2,038.
 *   - result_words holds 2,048 units. A whole-value read delivers all n elements: the
 *     values of a request fill the driver's result slot of its position and run on into
 *     the slots of the positions behind it (804 bytes apart), whose own values then
 *     overwrite them in request order. Give a long read a call of its own, or put it
 *     last. Each result receives at most its 4,096 bytes; a bit-addressed read one unit
 *     per element.
 *
 * Exceptions. The entry points are C functions but the library is C++: see the list per
 * entry point under "What the driver does not check" below.
 *
 * Reconnecting. After an exception, after InputFilterEx reports status 2 round after
 * round, or when GetInitCmdEx2 set *code to 10 (no connection), the host calls
 * Timeout(0, handle), which closes the device's connection, then InitEx with the device's
 * address (point 2 below), GetInitCmdEx2 (connect, identify, download the dictionary,
 * index the tags) and CheckInitCmdResponseEx2, which returns 1 once the device is ready
 * (0: try the same recipe again later). The handle and the tag table stay valid
 * throughout; nothing needs reopening (after a program download, see point 1).
 * Each exchange waits at most 1 s for a reply and each connect at most 100 ms.
 *
 * What the driver does not check, and what the host does about it. Each point is how the
 * driver works and stays so; nothing reports it in a result. The trace (below) names
 * each case in a line of its own, given here in brackets.
 *
 *   1. A program download to the controller. A reconnect downloads the dictionary again,
 *      but the driver keeps the variables of the earlier download and only adds to them:
 *      a variable that the new program no longer has keeps its old address, and its tags
 *      read whatever lies there now, with status 0 (variables that moved follow).
 *      Recipe: after a program download, CloseDevice, then StartDeviceEx and the handshake
 *      again. [program-change variable=... gone=1]
 *      Guarded mode: a new download replaces the dictionary; the removed variable's tags
 *      are refused.
 *   2. The address. GetInitCmdEx2 connects to the address of the last InitEx, whichever
 *      device it was for. With two controllers, a reconnect of device A after an InitEx for
 *      B reads B's values as A's. Recipe: call InitEx with this device's address before
 *      every GetInitCmdEx2, reconnects included. [reconnect ... changed=1]
 *      Guarded mode: a device keeps the address of its first connect that succeeded.
 *   3. Subscripts in a tag name on an array of structures step by the element's size from
 *      the array's start, whatever its declared low bound: with ARRAY[1..3] OF PUMP,
 *      Pumps[1].Speed is the second element and Pumps[3].Speed lies past the array, in the
 *      variable behind it. Recipe: count structure-array subscripts from 0 (Pumps[0] is the
 *      first element) and keep them below the element count. [extent tag=...]
 *      Guarded mode: a subscript below 0 or at or past the element count, and any tag
 *      whose bytes leave its variable, are refused (subscripts still count from 0).
 *   4. Elements of an array tag are the host's: the driver reads element_count elements
 *      from array_index on without checking them against the array's bounds, and a
 *      subscript on the whole tag name ("Levels[3]") is dropped. Recipe: name the array
 *      in the tag file, select the element with array_index (counted from 0) and keep
 *      array_index + element_count within the array. [subscript tag=...]
 *      Guarded mode: a request past the array is refused, and a tag named "Levels[3]" is
 *      served only with the array_index of the element declared so (2 for ARRAY[1..8]).
 *   5. Tags that do not resolve, and tag numbers past the table. A name that is not in the
 *      dictionary resolves to nothing and is not reported; a tag number past the tag file's
 *      table reads as such a tag. So does every tag of a device whose tag file is missing:
 *      StartDeviceEx returns 0 all the same. Such a read goes to block 0, offset 0, and a
 *      reply too short for its elements raises std::out_of_range out of OutputFilterEx.
 *      Recipe: check the tag file against the controller before going on site (panelhost
 *      tags check, or the trace's unresolved lines) and keep tag numbers below its count.
 *      [StartDeviceEx ... error=, unresolved tag=..., tag-past-table]
 *      Guarded mode: such a position is refused; a malformed name refuses that tag only.
 *   6. A late reply. A reply that comes after the one-second wait stays in the socket, and
 *      an unanswered read leaves the transaction id where it was: after a round reported
 *      status 2, the next round on the same connection may take that late reply, and
 *      deliver an earlier request's values with status 0. Recipe: after a round with
 *      status 2, call Timeout first (then InitEx and GetInitCmdEx2) so that the next
 *      round starts on a new connection. [late-reply request_id=... reply_id=...]
 *      Guarded mode: the id is stepped after an unanswered exchange and only the reply
 *      that carries the request's id is taken; stale bytes are discarded before a request.
 *   7. More than 255 requests in one OutputFilterEx read. Nothing is sent, and the next
 *      InputFilterEx delivers the values of an earlier round with status 0 (see Limits).
 *      Recipe: split larger reads into calls of at most 255 requests and 2,038 value
 *      bytes. [too-many-requests requests=...]
 *      Guarded mode: every position of such a call fails, as does one of more than 2,038
 *      value bytes, and a request whose values run past its result slot ahead of others.
 *   8. Guarded mode also fails every round of a device that is not ready (its dictionary
 *      download or index build failed), sends a bit write inside a word to the
 *      controller (read, change the bit, write back) and writes 1-byte types (SINT,
 *      BYTE, USINT) with one value byte per element.
 *
 *   Exceptions, per entry point (all of them from the standard library):
 *     StartDeviceEx             std::bad_alloc (no handle is stored)
 *     GetInitCmdEx2             std::out_of_range (a reply too short for a field of the
 *                               handshake), std::bad_alloc
 *     CheckInitCmdResponseEx2   nothing: what the tag index build raises (a malformed
 *                               subscript in a name) is caught, the device reported not ready
 *     OutputFilterEx            std::out_of_range (a reply too short for the values asked:
 *                               point 5, a cut or split reply, more values than one reply
 *                               carries), std::bad_alloc
 *     the others                nothing
 *   In guarded mode none of them leaves an entry point: the round fails (status 2, code
 *   10 on every position), GetInitCmdEx2 reports code 10, CheckInitCmdResponseEx2
 *   returns 0, StartDeviceEx returns 0.
 *   A C++ host calls these inside try/catch (std::exception). A host in C cannot catch: the
 *   exception ends the process (std::terminate). It calls them through a small C++ shim
 *   that catches, calls Timeout(0, handle) and returns an error code; the host then treats
 *   the values of that round as invalid and reconnects (GetInitCmdEx2,
 *   CheckInitCmdResponseEx2). examples/guarded_calls.h and .cpp are such a shim, and
 *   examples/guarded_host.c a C host using it.
 *
 * The tag file (named in StartDeviceEx; little-endian, no signature). The driver skips
 * offset + 7 bytes, then reads a u32 wide_names (non-zero: names of 16-bit characters),
 * a u32 tag count and that many records, back to back: a u16 name length n, the name (n
 * bytes, or 2n with wide names, no terminator), a u8 kind and two u32 values (carried,
 * not used). A tag's number is its position in the file from 0. Names are resolved as
 * 8-bit text: a 16-bit name is read up to its first zero byte, so "Motor" written in
 * 16-bit characters looks for "M" and does not resolve. Short reads are not checked.
 *
 * The trace. UNITYDRV_TRACE in the host's environment, read once when the library is
 * loaded, turns on a line per event: "stderr", "syslog", or a file path (appended, one
 * line flushed per event; a path that cannot be opened is said once on stderr and the
 * trace stays off). UNITYDRV_TRACE_WIRE=1 adds every request and reply as hex. A line
 * holds the UTC time with milliseconds, "unitydrv", dev=N (the devices numbered from 1 in
 * the order they were started), the event and its figures as key=value. With the trace
 * off or on the host gets the same results and records and the controller the same bytes;
 * exceptions are traced and leave unchanged. Off, it costs one test per event.
 */

/*
 * Guarded mode. UNITYDRV_GUARD=1 in the host's environment, read once when the library is
 * loaded, turns it on (the trace says "guarded mode=on"). The driver then refuses, with
 * result_status 2 and result_code 10, each request position whose value it cannot vouch
 * for (the points above), serves the other positions of the round, and lets no exception
 * leave an entry point. Off, every result, record byte and wire byte is as described above.
 */

/* Description (callable at any time). */
UNITYDRV_API void ORMAND_DRV_GetAttributeEx(unitydrv_attributes* attributes);
UNITYDRV_API void ORMAND_DRV_GetDeviceTableEx(unitydrv_address_type* table, uint32_t* count);
UNITYDRV_API void ORMAND_DRV_GetCommandSizeLimitInfo(unitydrv_size_limit* limit, uint32_t* count);
/* Maps a PLC type code to the host's data type; unknown codes leave *host_type alone. Returns 1. */
UNITYDRV_API int ORMAND_DRV_GetDataType(const unitydrv_type_query* query, uint32_t ignored,
                                        uint32_t* host_type);
/* An opaque value kept for the host (0 until set). */
UNITYDRV_API void ORMAND_DRV_GetCommParam(uint32_t* value);
UNITYDRV_API void ORMAND_DRV_SetCommParam(uint32_t value);

/* Sets the controller address used by devices connected afterwards. */
UNITYDRV_API void ORMAND_DRV_InitEx(uint32_t ignored, const unitydrv_init_params* params);
/* Creates a device from the tag file at path (records start at offset + 7). The handle is
 * stored before the file is read; a missing file gives an empty table. Returns 0. */
UNITYDRV_API int ORMAND_DRV_StartDeviceEx(uint8_t offline_mode, void** handle, const char* path,
                                          uint32_t offset);
/* Connects, identifies the controller, downloads its dictionary and resolves the tags.
 * *code = 10 when the connection failed, else 0. Of the returned record only word_4 (0) is
 * written: on 32-bit ARM the record comes back in the caller's memory and its first word
 * keeps what the host put there; on x86-64 it comes back in registers and reads 0. */
UNITYDRV_API unitydrv_result ORMAND_DRV_GetInitCmdEx2(uint32_t* code, uint32_t w1, uint32_t w2,
                                                      uint32_t w3, void** handle);
/* 1 when the device is ready (or offline), 0 while its dictionary is incomplete. */
UNITYDRV_API int ORMAND_DRV_CheckInitCmdResponseEx2(uint32_t w1, uint32_t w2, void** handle);
/* Carries out the reads or the write of an array of requests for the device of the first.
 * Of the returned record only bytes 2..7 are written (byte_3 = 8, the rest 0): on 32-bit ARM
 * it comes back in the caller's memory and host_0 keeps what the host put there; on x86-64
 * it comes back in registers and host_0 reads 0. A request's values may run past its result
 * slot into the slots behind it; each result receives at most its 4096 bytes. */
UNITYDRV_API unitydrv_result ORMAND_DRV_OutputFilterEx(_gui_request_* requests, int count);
/* Delivers the results of the last OutputFilterEx, one per request position. */
UNITYDRV_API void ORMAND_DRV_InputFilterEx(_input_data_* results, _frame_data_* frame,
                                           _system_info* infos, int count);
/* Drops the device's connection; the next GetInitCmdEx2 connects again. */
UNITYDRV_API void ORMAND_DRV_Timeout(uint32_t ignored, void* handle);
/* Destroys the device. A null handle is ignored. */
UNITYDRV_API void ORMAND_DRV_CloseDevice(uint32_t ignored, void* handle);

#define UNITYDRV_CHECK_OFFSET(type, field, off) \
  UNITYDRV_STATIC_ASSERT(offsetof(type, field) == (off), #type "." #field " offset")

UNITYDRV_CHECK_OFFSET(tag_ref, type_code_a, 4);
UNITYDRV_CHECK_OFFSET(tag_ref, type_select, 5);
UNITYDRV_CHECK_OFFSET(tag_ref, type_code_b, 6);
UNITYDRV_CHECK_OFFSET(tag_ref, bit_spec, 9);
UNITYDRV_CHECK_OFFSET(tag_ref, index_off, 10);
UNITYDRV_CHECK_OFFSET(tag_ref, array_index, 13);
UNITYDRV_CHECK_OFFSET(tag_ref, element_count, 15);
UNITYDRV_STATIC_ASSERT(sizeof(tag_ref) == 17, "tag_ref size");

UNITYDRV_CHECK_OFFSET(_gui_request_, status, 4);
UNITYDRV_CHECK_OFFSET(_gui_request_, request_kind, 36);
UNITYDRV_CHECK_OFFSET(_gui_request_, write.write_count, 52);
UNITYDRV_CHECK_OFFSET(_gui_request_, write.bit.write_bit_value, 53);
UNITYDRV_CHECK_OFFSET(_gui_request_, write_words, 54);
UNITYDRV_CHECK_OFFSET(_gui_request_, ref, 4171);
UNITYDRV_CHECK_OFFSET(_gui_request_, device_handle, 4192);
UNITYDRV_STATIC_ASSERT(sizeof(_gui_request_) == 4192 + sizeof(void*), "_gui_request_ size");

UNITYDRV_CHECK_OFFSET(_input_data_, result_code, 1);
UNITYDRV_CHECK_OFFSET(_input_data_, request_id, 4);
UNITYDRV_CHECK_OFFSET(_input_data_, result_words, 8);
UNITYDRV_STATIC_ASSERT(sizeof(_input_data_) == 4104, "_input_data_ size");

UNITYDRV_CHECK_OFFSET(_system_info, request_id, 4);
UNITYDRV_CHECK_OFFSET(_system_info, device_handle, 16);
UNITYDRV_STATIC_ASSERT(sizeof(_system_info) == 16 + sizeof(void*), "_system_info size");

UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_50, 50);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, driver_number, 52);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_54, 54);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_56, 56);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_60, 60);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_68, 68);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_70, 70);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_74, 74);
UNITYDRV_CHECK_OFFSET(unitydrv_attributes, value_80, 80);
UNITYDRV_STATIC_ASSERT(sizeof(unitydrv_attributes) == 82, "unitydrv_attributes size");
UNITYDRV_STATIC_ASSERT(sizeof(unitydrv_address_type) == 450, "unitydrv_address_type size");
UNITYDRV_STATIC_ASSERT(sizeof(unitydrv_size_limit) == 90, "unitydrv_size_limit size");
UNITYDRV_CHECK_OFFSET(unitydrv_type_query, type_code, 4);
UNITYDRV_CHECK_OFFSET(unitydrv_init_params, octet4, 8);
UNITYDRV_CHECK_OFFSET(unitydrv_init_params, octet3, 10);
UNITYDRV_CHECK_OFFSET(unitydrv_init_params, octet1, 12);
UNITYDRV_CHECK_OFFSET(unitydrv_init_params, octet2, 13);
UNITYDRV_CHECK_OFFSET(unitydrv_result, byte_3, 3);
UNITYDRV_CHECK_OFFSET(unitydrv_result, word_4, 4);
UNITYDRV_STATIC_ASSERT(sizeof(unitydrv_result) == 8, "unitydrv_result size");

#undef UNITYDRV_CHECK_OFFSET

#endif /* UNITYDRV_UNITYDRV_H */
