#include "services/http_client.h"

#include <cstdio>
#include <memory>

#include <curl/curl.h>

namespace {

// No answer the host asks for (a token, an OCSP response, a CRL) comes near this.
constexpr size_t kMaxResponse = 16u * 1024 * 1024;
constexpr long kHttpOk = 200;
constexpr char kHttp[] = "http://";
constexpr char kHttps[] = "https://";

struct CurlDeleter {
  void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
struct HeaderListDeleter {
  void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

struct Sink {
  Bytes* out;
  bool tooLarge = false;
};

// Appends a piece of the answer; returning less than given makes libcurl stop with a write error.
size_t appendPiece(char* data, size_t size, size_t count, void* user) {
  Sink* sink = static_cast<Sink*>(user);
  if (count != 0 && size > kMaxResponse / count) {
    sink->tooLarge = true;
    return 0;
  }
  const size_t n = size * count;
  if (n > kMaxResponse - sink->out->size()) {
    sink->tooLarge = true;
    return 0;
  }
  sink->out->insert(sink->out->end(), data, data + n);
  return n;
}

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// libcurl's process-wide set-up, done once before the first exchange.
bool curlReady() {
  static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return ready;
}

}  // namespace

bool isHttpUrl(const std::string& url) { return startsWith(url, kHttp) || startsWith(url, kHttps); }

bool httpExchange(const HttpExchange& request, Bytes& response, std::string& error) {
  response.clear();
  if (!isHttpUrl(request.url)) {
    error = "not an http:// or https:// URL: " + request.url;
    return false;
  }
  if (!curlReady()) {
    error = "cannot start libcurl";
    return false;
  }
  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  if (!curl) {
    error = "cannot start libcurl";
    return false;
  }
  std::unique_ptr<curl_slist, HeaderListDeleter> headers;
  Sink sink{&response};
  CURL* c = curl.get();
  curl_easy_setopt(c, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(c, CURLOPT_TIMEOUT, request.timeoutSeconds);
  curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, request.timeoutSeconds);
  curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, appendPiece);
  curl_easy_setopt(c, CURLOPT_WRITEDATA, &sink);
  if (!request.contentType.empty()) {
    const std::string type = "Content-Type: " + request.contentType;
    headers.reset(curl_slist_append(nullptr, type.c_str()));
    if (!headers) {
      error = "out of memory";
      return false;
    }
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(c, CURLOPT_POST, 1L);
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  }
  const CURLcode code = curl_easy_perform(c);
  if (code == CURLE_OPERATION_TIMEDOUT) {
    error = "no answer from " + request.url + " within " + std::to_string(request.timeoutSeconds) + " s";
    return false;
  }
  if (sink.tooLarge) {
    error = "the answer from " + request.url + " is larger than " + std::to_string(kMaxResponse) + " bytes";
    return false;
  }
  if (code != CURLE_OK) {
    error = request.url + ": " + curl_easy_strerror(code);
    return false;
  }
  long status = 0;
  curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
  if (status != kHttpOk) {
    error = request.url + " answered with HTTP status " + std::to_string(status);
    return false;
  }
  return true;
}
