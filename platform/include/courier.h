/* libcourier.so.1, the camera's message library: framed XML events over a FIFO.
   A frame is four bytes of header (type 1, version 1, payload length as 16 bits, high byte first), then the payload:
     <message>[<channel>N</channel>]EVENT</message>
   where EVENT is one of
     <autofocus>falling|rising</autofocus>, <afbutton>pressed|released</afbutton>,
     <zoominbutton>pressed|released</zoominbutton>, <zoomoutbutton>pressed|released</zoomoutbutton>.
   White space between the elements and round their text is allowed; attributes and a document type are not.  N is a
   decimal number, which may begin with "-"; beyond the ends of int32 it counts as the nearer end.
   Any thread; pointers are borrowed for the call and never null. */
#ifndef COURIER_H
#define COURIER_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

enum { COURIER_TYPE_EVENT = 1, COURIER_VERSION = 1, COURIER_HEADER_LENGTH = 4 };

/* An event: six 32-bit words. */
typedef struct {
  int32_t iChannel; /* any value; 0 where the message names none */
  uint32_t dwReserved1;
  uint32_t dwReserved2;
  uint32_t dwCode;    /* 19 autofocus and its button, 21 zoom-in button, 22 zoom-out button */
  uint32_t dwSubCode; /* 19: 5 falling, 4 rising; buttons: 2 pressed, 1 released */
  uint32_t dwReserved3;
} TCourierEvent;

/* Courier_Parse_Event fills at most ten events, which fit into COURIER_EVENT_STORAGE bytes. */
enum { COURIER_MAX_EVENTS = 10, COURIER_EVENT_STORAGE = 244 };

/* Where a message goes, and what it says. */
typedef struct {
  char szFIFO[108];
  char szPayload[1024];
} TCourierSendOptions;

/* Reads type and lengths of a frame from its first iCount bytes, of which it needs 4.  Returns 0 with the values set:
   *pdwHeaderLength is 4, *pdwType is byte 0, whatever it is, and *pdwPayloadLength is at most 65535, which the caller
   compares with its own buffer.  Returns -1 with nothing set for fewer bytes, or a header of another version. */
int32_t Courier_GetTypeLength(const uint8_t* pbBuffer, int32_t iCount, uint32_t* pdwType, uint32_t* pdwHeaderLength,
                              uint32_t* pdwPayloadLength);

/* Turns a payload into events, with the caller's Expat parser (XML_ParserCreate), which is reset before and after.  One
   call at a time may use the parser.  *piCount: before, the number of records that ptEvents has room for; after, the
   number filled, one for each EVENT of the message.  pvExtra: 8 bytes, not used.  Returns 0 if at least one record was
   filled.  Returns -1 if the payload is no XML, holds anything outside the language above, or more events than there is
   room for; then *piCount is 0 and ptEvents is as it was. */
int32_t Courier_Parse_Event(void* hXMLParser, const char* pszPayload, uint32_t dwLength, int32_t* piCount,
                            TCourierEvent* ptEvents, void* pvExtra);

/* Fills the options from the arguments of fifocmd: { "fifocmd", "-p", FIFO, "-e", XML }, in either order of the
   options.  Returns 0, or -1 if an option is missing, unknown, empty or too long (a frame holds at most 1023 bytes, its
   header included); *ptOptions is then as it was.  The XML itself is not checked. */
int32_t Courier_Util_GetOptions(int32_t iCount, const char* const* apszArgs, TCourierSendOptions* ptOptions);

/* Writes the frame to the FIFO in one piece, without waiting and without SIGPIPE.  Returns 0, or -1 with errno: ENXIO
   or EPIPE if nobody reads the FIFO, EAGAIN if it is full, EINVAL if it is no FIFO, else the error of open. */
int32_t Courier_Util_SendbyFIFO(const TCourierSendOptions* ptOptions);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
