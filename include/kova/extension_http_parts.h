/* What kova/extension_http.h is made of. Not for use by others: include that
 * one, which defines the types. Names here may change. */
#pragma once

/* This is C, too. NOLINTBEGIN(modernize-use-nullptr) */

static inline KOVA_Text kova_text(const char* bytes, size_t length) {
  KOVA_Text text;
  text.bytes = bytes;
  text.length = length;
  return text;
}

static inline KOVA_Text kova_from(KOVA_Text text, size_t at) {
  if (at > text.length) at = text.length;
  return kova_text(text.bytes + at, text.length - at);
}

/* The index of the first `byte`; text.length if there is none. */
static inline size_t kova_find(KOVA_Text text, char byte) {
  size_t at = 0;
  while (at < text.length && text.bytes[at] != byte) ++at;
  return at;
}

static inline int kova_is_blank(unsigned unit) {
  return unit == ' ' || unit == '\t';
}
static inline int kova_is_blank_or_end(unsigned unit) {
  return kova_is_blank(unit) || unit == '\r' || unit == '\n';
}
static inline unsigned kova_first(KOVA_Text text) {
  return (unsigned char)text.bytes[0];
}

static inline KOVA_Text kova_trim_end(KOVA_Text text) {
  while (text.length > 0 &&
         kova_is_blank_or_end((unsigned char)text.bytes[text.length - 1])) {
    --text.length;
  }
  return text;
}
static inline KOVA_Text kova_trim(KOVA_Text text) {
  while (text.length > 0 && kova_is_blank_or_end(kova_first(text))) {
    text = kova_from(text, 1);
  }
  return kova_trim_end(text);
}

/* Takes what comes before the first `separator` off `rest`, and the separator
 * with it; all of `rest` if there is none. */
static inline KOVA_Text kova_cut(KOVA_Text* rest, char separator) {
  const size_t end = kova_find(*rest, separator);
  const KOVA_Text piece = kova_text(rest->bytes, end);
  *rest = kova_from(*rest, end + 1);
  return piece;
}

static inline KOVA_Text kova_trim_blanks(KOVA_Text text) {
  while (text.length > 0 && kova_is_blank(kova_first(text))) {
    text = kova_from(text, 1);
  }
  return text;
}

/* Takes a word and the blanks before it off `rest`, which then begins with a
 * blank or is empty. */
static inline KOVA_Text kova_cut_word(KOVA_Text* rest) {
  const KOVA_Text all = kova_trim_blanks(*rest);
  size_t end = 0;
  while (end < all.length && !kova_is_blank((unsigned char)all.bytes[end])) {
    ++end;
  }
  *rest = kova_from(all, end);
  return kova_text(all.bytes, end);
}

static inline unsigned kova_fold(unsigned unit) {
  return unit >= 'A' && unit <= 'Z' ? unit - 'A' + 'a' : unit;
}

/* Letter case of ASCII does not count. */
static inline int kova_equals_folded(KOVA_Text text, const char* expected) {
  size_t i;
  if (text.length != strlen(expected)) return 0;
  for (i = 0; i < text.length; ++i) {
    if (kova_fold((unsigned char)text.bytes[i]) !=
        kova_fold((unsigned char)expected[i])) {
      return 0;
    }
  }
  return 1;
}

/* A digit of a '%' escape. The server takes any character for one. */
static inline unsigned kova_digit(char c) {
  return c >= '0' && c <= '9' ? (unsigned)(c - '0')
                              : ((unsigned char)c & 15u) + 9u;
}

/* Takes one decoded byte off `rest`. 0 at the end, which is also at a zero byte
 * and at a '%' with less than two characters behind it. */
static inline unsigned kova_next_byte(KOVA_Text* rest) {
  unsigned byte = 0;
  size_t taken = 1;
  if (rest->length == 0) return 0;
  if (rest->bytes[0] == '+') {
    byte = ' ';
  } else if (rest->bytes[0] != '%') {
    byte = kova_first(*rest);
  } else if (rest->length > 2) {
    byte = (kova_digit(rest->bytes[1]) * 16 + kova_digit(rest->bytes[2])) & 255;
    taken = 3;
  }
  *rest = kova_from(*rest, byte == 0 ? rest->length : taken);
  return byte;
}

/* Takes one UTF-16 unit off `rest`, decoded from UTF-8 as the server does it:
 * unchecked, and without sequences of four bytes. 0 at the end, which is also
 * where a sequence is cut short. */
static inline unsigned kova_next_unit(KOVA_Text* rest) {
  const unsigned lead = kova_next_byte(rest);
  const int isLong = (lead & 0xE0) != 0xC0;
  unsigned second;
  unsigned third = 0;
  unsigned unit;
  if (lead < 0x80) return lead;
  second = kova_next_byte(rest);
  if (isLong && second != 0) third = kova_next_byte(rest);
  unit = isLong ? (lead & 15) << 12 | (second & 63) << 6 | (third & 63)
                : (lead & 31) << 6 | (second & 63);
  if (second == 0 || (isLong && third == 0)) unit = 0;
  if (unit == 0) *rest = kova_from(*rest, rest->length);
  return unit;
}

/* Takes header lines off `rest` up to the first called `name`, whose value it
 * gives; 0 if there is none. */
static inline int kova_next_header(KOVA_Text* rest, const char* name,
                                   KOVA_Text* value) {
  while (rest->length > 0) {
    const KOVA_Text line = kova_trim(kova_cut(rest, '\n'));
    const size_t colon = kova_find(line, ':');
    if (colon < line.length &&
        kova_equals_folded(kova_text(line.bytes, colon), name)) {
      *value = kova_trim(kova_from(line, colon + 1));
      return 1;
    }
  }
  return 0;
}

/* The number at the start of `text`, at most 2147483647; 0 for a negative one
 * and for none. */
static inline uint32_t kova_leading_number(KOVA_Text text) {
  uint32_t number = 0;
  while (text.length > 0 &&
         (kova_first(text) == ' ' ||
          (kova_first(text) >= '\t' && kova_first(text) <= '\r'))) {
    text = kova_from(text, 1);
  }
  if (text.length > 0 && text.bytes[0] == '+') text = kova_from(text, 1);
  for (; text.length > 0; text = kova_from(text, 1)) {
    const unsigned digit = kova_first(text) - '0';
    if (digit > 9) break;
    if (number > (2147483647u - digit) / 10) return 2147483647u;
    number = number * 10 + digit;
  }
  return number;
}

/* Fills in what the request line says; 0 if it is not one. */
static inline int kova_read_line(KOVA_HttpRequest* out, KOVA_Text line) {
  KOVA_Text target;
  KOVA_Text start;
  out->method = kova_cut_word(&line);
  if (line.length == 0) return 0;
  target = kova_cut_word(&line);
  if (line.length > 0) {
    out->version = kova_trim_end(kova_trim_blanks(line));
  } else {
    target = kova_trim_end(target);
  }
  out->path = kova_cut(&target, '?');
  out->query = target;
  start = out->path;
  return out->method.length > 0 && kova_next_byte(&start) != 0;
}

/* Finds the empty line at or behind `from`: where the headers end, and where
 * what follows it begins. 0 if there is none. */
static inline int kova_find_empty_line(KOVA_Text all, size_t from, size_t* end,
                                       size_t* next) {
  size_t at;
  for (at = from; at < all.length && all.bytes[at] != '\0'; ++at) {
    const KOVA_Text behind = kova_from(all, at + 1);
    size_t line = 0;
    if (all.bytes[at] != '\n') continue;
    if (behind.length > 0 && behind.bytes[0] == '\n') line = 1;
    if (behind.length > 1 && memcmp(behind.bytes, "\r\n", 2) == 0) line = 2;
    if (line == 0) continue;
    *end = at > from && all.bytes[at - 1] == '\r' ? at - 1 : at;
    *next = at + 1 + line;
    return 1;
  }
  return 0;
}

/* The value of the first field `name` in `form`, still encoded; 0 if there is
 * none. */
static inline int kova_find_field(KOVA_Text form, const char* name,
                                  KOVA_Text* value) {
  form.length = kova_find(form, '\0');
  while (form.length > 0) {
    const char* expected = name;
    KOVA_Text field = kova_trim(kova_cut(&form, '&'));
    KOVA_Text found;
    if (kova_find(field, '=') == field.length) continue;
    found = kova_cut(&field, '=');
    while (*expected != '\0' && kova_fold(kova_next_unit(&found)) ==
                                    kova_fold((unsigned char)*expected)) {
      ++expected;
    }
    if (*expected != '\0' || kova_next_unit(&found) != 0) continue;
    *value = field;
    return 1;
  }
  return 0;
}

/* Whether a header line "Connection" names `option`. */
static inline int kova_has_option(const KOVA_HttpRequest* request,
                                  const char* option) {
  KOVA_Text lines = request->headers;
  KOVA_Text value;
  while (kova_next_header(&lines, "Connection", &value)) {
    while (value.length > 0) {
      if (kova_equals_folded(kova_trim(kova_cut(&value, ',')), option)) {
        return 1;
      }
    }
  }
  return 0;
}

/* Counts what is written, and writes it if there is a buffer. */
typedef struct kova_out {
  char* buffer; /* null: count only */
  size_t bytes;
} kova_out;

static inline void kova_put(kova_out* out, const void* bytes, size_t count) {
  if (out->buffer != NULL && count > 0) {
    memcpy(out->buffer + out->bytes, bytes, count);
  }
  out->bytes += count;
}

static inline void kova_put_text(kova_out* out, const char* text) {
  kova_put(out, text, strlen(text));
}

static inline void kova_put_number(kova_out* out, size_t number) {
  char digits[20];
  size_t at = sizeof(digits);
  do {
    digits[--at] = (char)('0' + number % 10);
    number /= 10;
  } while (number > 0);
  kova_put(out, digits + at, sizeof(digits) - at);
}

/* As RFC 9110 words it; clients pass over it. Empty for the rarer ones. */
static inline const char* kova_reason(uint32_t status) {
  static const char* const kReasons[] = {
      "200OK",
      "201Created",
      "202Accepted",
      "204No Content",
      "301Moved Permanently",
      "302Found",
      "303See Other",
      "304Not Modified",
      "307Temporary Redirect",
      "400Bad Request",
      "401Unauthorized",
      "403Forbidden",
      "404Not Found",
      "405Method Not Allowed",
      "408Request Timeout",
      "409Conflict",
      "411Length Required",
      "413Content Too Large",
      "415Unsupported Media Type",
      "429Too Many Requests",
      "500Internal Server Error",
      "501Not Implemented",
      "503Service Unavailable",
  };
  size_t i;
  for (i = 0; i < sizeof(kReasons) / sizeof(*kReasons); ++i) {
    const char* const row = kReasons[i];
    if (status == (uint32_t)((row[0] - '0') * 100 + (row[1] - '0') * 10 +
                             (row[2] - '0'))) {
      return row + 3;
    }
  }
  return "";
}

/* Whether `text` is null or header lines, each ended by CR LF. */
static inline int kova_are_lines(const char* text) {
  while (text != NULL && *text != '\0') {
    const char* const end = strchr(text, '\n');
    if (end == NULL || end - text < 2 || end[-1] != '\r') return 0;
    text = end + 1;
  }
  return 1;
}

static inline void kova_put_response(kova_out* out,
                                     const KOVA_HttpResponse* response) {
  const int hasBody = response->status != 204 && response->status != 304;
  kova_put_text(out, "HTTP/1.1 ");
  kova_put_number(out, response->status);
  kova_put_text(out, " ");
  kova_put_text(out, kova_reason(response->status));
  if (hasBody && response->contentType != NULL) {
    kova_put_text(out, "\r\nContent-Type: ");
    kova_put_text(out, response->contentType);
  }
  if (hasBody) {
    kova_put_text(out, "\r\nContent-Length: ");
    kova_put_number(out, response->bodyBytes);
  }
  kova_put_text(out, response->staysOpen ? "\r\nConnection: keep-alive\r\n"
                                         : "\r\nConnection: close\r\n");
  if (response->headers != NULL) kova_put_text(out, response->headers);
  kova_put_text(out, "\r\n");
  if (hasBody && !response->isForHead) {
    kova_put(out, response->body, response->bodyBytes);
  }
}

/* NOLINTEND(modernize-use-nullptr) */
