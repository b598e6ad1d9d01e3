#include "bench/micro/peer_request.h"

namespace kova::bench {
namespace {

// The bytes come in one piece, so that every callback has a whole field.
template <typename Text>
struct Callbacks {
  static PeerRequest<Text>& Of(http_parser* parser) {
    return *static_cast<PeerRequest<Text>*>(parser->data);
  }
  static int OnUrl(http_parser* parser, const char* at, size_t length) {
    Of(parser).url = Text(at, length);
    return 0;
  }
  static int OnField(http_parser* parser, const char* at, size_t length) {
    Of(parser).headers.emplace_back(Text(at, length), Text());
    return 0;
  }
  static int OnValue(http_parser* parser, const char* at, size_t length) {
    Of(parser).headers.back().second = Text(at, length);
    return 0;
  }
  static int OnBody(http_parser* parser, const char* at, size_t length) {
    Of(parser).body = Text(at, length);
    return 0;
  }
  static int OnComplete(http_parser* parser) {
    Of(parser).isComplete = true;
    return 0;
  }

  static http_parser_settings Settings() {
    http_parser_settings settings;
    http_parser_settings_init(&settings);
    settings.on_url = &OnUrl;
    settings.on_header_field = &OnField;
    settings.on_header_value = &OnValue;
    settings.on_body = &OnBody;
    settings.on_message_complete = &OnComplete;
    return settings;
  }
};

}  // namespace

template <typename Text>
PeerRequest<Text> ParseWithPeer(std::string_view bytes) {
  static const http_parser_settings settings = Callbacks<Text>::Settings();
  PeerRequest<Text> request;
  http_parser parser;
  http_parser_init(&parser, HTTP_REQUEST);
  parser.data = &request;
  http_parser_execute(&parser, &settings, bytes.data(), bytes.size());
  request.method = http_method_str(static_cast<http_method>(parser.method));
  request.major = parser.http_major;
  request.minor = parser.http_minor;
  return request;
}

template PeerRequest<std::string> ParseWithPeer(std::string_view bytes);
template PeerRequest<std::string_view> ParseWithPeer(std::string_view bytes);

}  // namespace kova::bench
