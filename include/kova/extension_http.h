/* HTTP for network extensions: takes a request apart as the server does, and
 * makes a response whose lengths and keep-open flag are right. For C (C99) and
 * C++; a little more for C++ (C++17) at the end. All of it is in this header,
 * and needs the C library alone, on any system.
 *
 * Nothing here allocates, keeps a pointer after it returned, or has state: any
 * function may be called on any thread. Texts point into the bytes that they
 * were read from and live as long as those: those of a request are gone when
 * WSIE_HandleServerRequest returns. Lengths are in bytes.
 *
 * Careless requests are read as the server reads them. So the form fields
 * "printer" and "share" are those that it chose this extension by.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes without a terminator. Never null, also when empty. */
typedef struct KOVA_Text {
  const char* bytes;
  size_t length;
} KOVA_Text;

/* One request, taken apart. */
typedef struct KOVA_HttpRequest {
  KOVA_Text method;
  KOVA_Text path;    /* as sent: still encoded, without the query string */
  KOVA_Text query;   /* what follows the path's first '?', still encoded */
  KOVA_Text version; /* as sent; "HTTP/1.0" if the request has none */
  KOVA_Text headers; /* the header lines, without the empty one */
  KOVA_Text body;    /* all bytes behind the headers; see KOVA_BodyState */
  /* What Content-Length announces; 0 without one, at most 2147483647. */
  uint32_t announcedBodyBytes;
} KOVA_HttpRequest;

/* How much of the body there is. */
typedef enum KOVA_BodyState {
  /* All of it and nothing else; there may be none. */
  KOVA_BODY_COMPLETE,
  /* Less than Content-Length announces: the server hands a request over whose
   * headers came alone. Status 408 asks the client to send it again. */
  KOVA_BODY_MISSING,
  /* More than Content-Length announces: a second request that was not waited
   * for, or a body in chunks, which the server does not know. */
  KOVA_BODY_LEFT_OVER
} KOVA_BodyState;

/* One response, described. The extension fills it in and owns what it points
 * to, which must stay until the last call that is given the response. */
typedef struct KOVA_HttpResponse {
  uint32_t status;         /* 200 to 599 */
  const char* contentType; /* terminated; null for none */
  /* Further header lines, terminated, each line ended by CR LF; null for none.
   * Not among them: Content-Type, Content-Length, Connection. */
  const char* headers;
  const void* body; /* may be null if there are no bytes */
  size_t bodyBytes; /* of the whole body, also in answer to HEAD */
  int isForHead;    /* as KOVA_StartResponse set it */
  int staysOpen;    /* as KOVA_StartResponse set it */
} KOVA_HttpResponse;

/* This is C, too. NOLINTBEGIN(modernize-use-nullptr) */
#include "kova/extension_http_parts.h"

/* --- Requests ----------------------------------------------------------- */

/* Whether `text` is `expected`, a terminated text, byte for byte. */
static inline int KOVA_Equals(KOVA_Text text, const char* expected) {
  return text.length == strlen(expected) &&
         memcmp(text.bytes, expected, text.length) == 0;
}

/* Takes the `lengthBytes` bytes of `request` apart, as WSIE_HandleServerRequest
 * gets them. Returns 0 if they are no whole request; the server hands over none
 * of these. Then `out` has what was found, and the rest of it is empty. Its
 * texts point into `request`. */
static inline int KOVA_ReadRequest(KOVA_HttpRequest* out, const void* request,
                                   uint32_t lengthBytes) {
  const KOVA_Text all = kova_text((const char*)request, lengthBytes);
  const KOVA_Text none = kova_text("", 0);
  const size_t lf = kova_find(all, '\n');
  const size_t lineEnd =
      lf > 0 && lf < all.length && all.bytes[lf - 1] == '\r' ? lf - 1 : lf;
  size_t end;
  size_t next;
  KOVA_Text length;
  out->method = out->path = out->query = out->headers = out->body = none;
  out->version = kova_text("HTTP/1.0", 8);
  out->announcedBodyBytes = 0;
  if (lf == all.length || kova_find(kova_text(all.bytes, lf), '\0') < lf ||
      !kova_read_line(out, kova_text(all.bytes, lineEnd)) ||
      !kova_find_empty_line(all, lineEnd, &end, &next)) {
    return 0;
  }
  if (end > lf + 1) out->headers = kova_text(all.bytes + lf + 1, end - lf - 1);
  out->body = kova_from(all, next);
  length = out->headers;
  if (kova_next_header(&length, "Content-Length", &length)) {
    out->announcedBodyBytes = kova_leading_number(length);
  }
  return 1;
}

/* The value of the first header line called `name` (terminated, ASCII; letter
 * case does not count), without blanks around it; empty if there is none. */
static inline KOVA_Text KOVA_Header(const KOVA_HttpRequest* request,
                                    const char* name) {
  KOVA_Text lines = request->headers;
  KOVA_Text value;
  return kova_next_header(&lines, name, &value) ? value : kova_text("", 0);
}

static inline KOVA_BodyState KOVA_GetBodyState(
    const KOVA_HttpRequest* request) {
  if (request->body.length < request->announcedBodyBytes) {
    return KOVA_BODY_MISSING;
  }
  return request->body.length == request->announcedBodyBytes
             ? KOVA_BODY_COMPLETE
             : KOVA_BODY_LEFT_OVER;
}

/* The first form field called `name` (terminated, ASCII; letter case does not
 * count), still encoded: from the query string, then from a body whose
 * Content-Type is application/x-www-form-urlencoded and nothing more. Empty if
 * there is none. */
static inline KOVA_Text KOVA_EncodedFormField(const KOVA_HttpRequest* request,
                                              const char* name) {
  KOVA_Text value;
  if (kova_find_field(request->query, name, &value)) return value;
  if (KOVA_GetBodyState(request) != KOVA_BODY_MISSING &&
      KOVA_Equals(KOVA_Header(request, "Content-Type"),
                  "application/x-www-form-urlencoded") &&
      kova_find_field(request->body, name, &value)) {
    return value;
  }
  return kova_text("", 0);
}

/* That field, decoded, without blanks around it, as the client sent it: UTF-8.
 *   out        gets the value and a terminator; cut if it is too small. Null
 *              if `capacity` is 0.
 *   capacity   the room in `out`, in bytes.
 * Returns the length of the whole value, without the terminator; 0 if there is
 * no such field. A value of `capacity` or more was cut. */
static inline size_t KOVA_FormField(const KOVA_HttpRequest* request,
                                    const char* name, char* out,
                                    size_t capacity) {
  KOVA_Text rest = KOVA_EncodedFormField(request, name);
  size_t written = 0;
  size_t length = 0;
  unsigned byte;
  while ((byte = kova_next_byte(&rest)) != 0) {
    if (written == 0 && kova_is_blank_or_end(byte)) continue;
    if (written + 1 < capacity) out[written] = (char)byte;
    ++written;
    if (!kova_is_blank_or_end(byte)) length = written;
  }
  if (capacity > 0) out[length < capacity ? length : capacity - 1] = '\0';
  return length;
}

/* The same as the server reads it: UTF-16. Of "printer" and "share" these are
 * the names that it asks the print spooler for.
 *   capacity   the room in `out`, in units.
 * Returns the length in units. */
static inline size_t KOVA_FormFieldWide(const KOVA_HttpRequest* request,
                                        const char* name, wchar_t* out,
                                        size_t capacity) {
  KOVA_Text rest = KOVA_EncodedFormField(request, name);
  size_t written = 0;
  size_t length = 0;
  unsigned unit;
  while ((unit = kova_next_unit(&rest)) != 0) {
    if (written == 0 && kova_is_blank_or_end(unit)) continue;
    if (written + 1 < capacity) out[written] = (wchar_t)unit;
    ++written;
    if (!kova_is_blank_or_end(unit)) length = written;
  }
  if (capacity > 0) out[length < capacity ? length : capacity - 1] = L'\0';
  return length;
}

/* Whether the connection can serve another request after this one: all of it
 * and nothing else has come, and the client does not want it closed (RFC 9112,
 * 9.3). */
static inline int KOVA_MayStayOpen(const KOVA_HttpRequest* request) {
  return KOVA_GetBodyState(request) == KOVA_BODY_COMPLETE &&
         !kova_has_option(request, "close") &&
         (KOVA_Equals(request->version, "HTTP/1.1") ||
          kova_has_option(request, "keep-alive"));
}

/* --- Responses ---------------------------------------------------------- */

/* A response to `request`, of status 200 and without a body, for the extension
 * to fill in.
 *   wantsToStayOpen   non-zero to keep the connection open if KOVA_MayStayOpen.
 *   keepOpen          the flag of WSIE_HandleServerRequest; set to 0 or 1, in
 *                     agreement with the response. */
static inline KOVA_HttpResponse KOVA_StartResponse(
    const KOVA_HttpRequest* request, int wantsToStayOpen, uint32_t* keepOpen) {
  KOVA_HttpResponse response;
  memset(&response, 0, sizeof(response));
  response.status = 200;
  response.isForHead = KOVA_Equals(request->method, "HEAD");
  response.staysOpen = wantsToStayOpen && KOVA_MayStayOpen(request);
  *keepOpen = response.staysOpen ? 1 : 0;
  return response;
}

/* What WSIE_GetResponseLength is to return: the number of bytes of the whole
 * response. 0 if it cannot be sent: a status that is none, a line end in the
 * content type, further header lines that are not ended by CR LF or are empty,
 * or more than 4294967295 bytes. */
static inline uint32_t KOVA_ResponseLength(const KOVA_HttpResponse* response) {
  kova_out out = {NULL, 0};
  if (response->status < 200 || response->status > 599 ||
      response->bodyBytes > UINT32_MAX || !kova_are_lines(response->headers) ||
      (response->contentType != NULL &&
       strpbrk(response->contentType, "\r\n") != NULL)) {
    return 0;
  }
  kova_put_response(&out, response);
  return out.bytes > UINT32_MAX ? 0 : (uint32_t)out.bytes;
}

/* What WSIE_GetResponse is to do: writes the whole response to `buffer`, which
 * has room for `bufferLengthBytes`. Returns 1; 0, and writes nothing, if
 * KOVA_ResponseLength is 0 or more than that. */
static inline int32_t KOVA_WriteResponse(const KOVA_HttpResponse* response,
                                         void* buffer,
                                         uint32_t bufferLengthBytes) {
  const uint32_t length = KOVA_ResponseLength(response);
  kova_out out = {(char*)buffer, 0};
  if (length == 0 || length > bufferLengthBytes) return 0;
  kova_put_response(&out, response);
  return 1;
}

/* NOLINTEND(modernize-use-nullptr) */

#ifdef __cplusplus
} /* extern "C" */
#endif

#if defined(__cplusplus) && \
    (__cplusplus >= 201703L || (defined(_MSVC_LANG) && _MSVC_LANG >= 201703L))
#include <string>
#include <string_view>

// For C++. What returns a string allocates it, and throws std::bad_alloc if
// there is no memory: see that this leaves no function of the extension.
namespace kova {

inline std::string_view View(KOVA_Text text) {
  return {text.bytes, text.length};
}

// KOVA_FormField and KOVA_FormFieldWide, whole; "" if there is no such field.
inline std::string FormField(const KOVA_HttpRequest& request,
                             const char* name) {
  std::string value(KOVA_EncodedFormField(&request, name).length, '\0');
  value.resize(KOVA_FormField(&request, name, value.data(), value.size() + 1));
  return value;
}
inline std::wstring FormFieldWide(const KOVA_HttpRequest& request,
                                  const char* name) {
  std::wstring value(KOVA_EncodedFormField(&request, name).length, L'\0');
  value.resize(
      KOVA_FormFieldWide(&request, name, value.data(), value.size() + 1));
  return value;
}

// The bytes of KOVA_WriteResponse; "" if it cannot be sent.
inline std::string ResponseBytes(const KOVA_HttpResponse& response) {
  std::string bytes(KOVA_ResponseLength(&response), '\0');
  KOVA_WriteResponse(&response, bytes.data(),
                     static_cast<uint32_t>(bytes.size()));
  return bytes;
}

}  // namespace kova
#endif
