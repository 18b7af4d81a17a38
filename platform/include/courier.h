/* libcourier.so.1, the camera's message library: framed XML events over a FIFO.
   A frame is four bytes of header (type 1, version 1, payload length as 16 bits, high byte first), then the payload:
     <message>[<channel>N</channel>]EVENT</message>
   where EVENT is one of
     <autofocus>falling|rising</autofocus>, <afbutton>pressed|released</afbutton>,
     <zoominbutton>pressed|released</zoominbutton>, <zoomoutbutton>pressed|released</zoomoutbutton>.
   White space between the elements and round their text is allowed, attributes and a document type are not.  N is a
   decimal number, "-" before it allowed, and stops at the ends of int32.
   Any thread; pointers are borrowed for the call and never null. */
#ifndef COURIER_H
#define COURIER_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

enum { COURIER_TYPE_EVENT = 1, COURIER_VERSION = 1, COURIER_HEADER_LENGTH = 4 };

/* An event.  Six 32-bit words; 244 bytes of storage so hold the ten that Courier_Parse_Event fills at most. */
typedef struct {
  int32_t iChannel; /* any value; 0 where the message names none */
  uint32_t dwReserved1;
  uint32_t dwReserved2;
  uint32_t dwCode;    /* 19 autofocus and its button, 21 zoom-in button, 22 zoom-out button */
  uint32_t dwSubCode; /* 19: 5 falling, 4 rising; buttons: 2 pressed, 1 released */
  uint32_t dwReserved3;
} TCourierEvent;

enum { COURIER_MAX_EVENTS = 10, COURIER_EVENT_STORAGE = 244 };

/* Where a message goes and what it says. */
typedef struct {
  char szFIFO[108];
  char szPayload[1024];
} TCourierSendOptions;

/* Reads the lengths of a frame from its first iCount (4) bytes.  0: the values are set, *pdwHeaderLength is 4,
   *pdwType is byte 0 whatever it is, and *pdwPayloadLength is at most 65535: the caller holds it against its own
   buffer.  -1: not a header of this version, or fewer than 4 bytes; nothing is set. */
int32_t Courier_GetTypeLength(const uint8_t* pbBuffer, int32_t iCount, uint32_t* pdwType, uint32_t* pdwHeaderLength,
                              uint32_t* pdwPayloadLength);

/* Turns a payload into events, with the caller's Expat parser (XML_ParserCreate; it is reset here, before and after).
   *piCount: in, the records there is room for; out, the records filled, one for each EVENT (several may follow each
   other).  pvExtra: 8 bytes, not used.  The parser serves one call at a time.  0: at least one record stands at
   ptEvents.  -1: no XML, anything that is not of the language, or more events than there is room for; *piCount is 0 and
   ptEvents is as it was. */
int32_t Courier_Parse_Event(void* hXMLParser, const char* pszPayload, uint32_t dwLength, int32_t* piCount,
                            TCourierEvent* ptEvents, void* pvExtra);

/* Fills the options from the arguments of fifocmd: { "fifocmd", "-p", FIFO, "-e", XML }, in either order of the
   options.  0, or -1 where an option is missing, unknown, empty or too long (a frame holds at most 1023 bytes, its
   header included); the options are then as they were.  The XML itself is not looked at. */
int32_t Courier_Util_GetOptions(int32_t iCount, const char* const* apszArgs, TCourierSendOptions* ptOptions);

/* Writes the frame to the FIFO in one piece, without waiting and without SIGPIPE: 0, or -1 with errno telling why:
   ENXIO or EPIPE nobody reads the FIFO, EAGAIN it is full, EINVAL it is no FIFO, else as open tells it. */
int32_t Courier_Util_SendbyFIFO(const TCourierSendOptions* ptOptions);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
