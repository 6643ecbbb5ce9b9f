// The one HTTP client of the host: a POST or a GET over libcurl with a time limit and a bound on the size of
// the answer. Time-stamp authorities, OCSP responders and CRL distribution points are asked through it.
#ifndef KOLVARI_TOOLS_SERVICES_HTTP_CLIENT_H
#define KOLVARI_TOOLS_SERVICES_HTTP_CLIENT_H

#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

struct HttpExchange {
  std::string url;
  long timeoutSeconds = 10;
  // Set for a POST: the body and its media type. An empty contentType makes the exchange a GET.
  std::string contentType;
  Bytes body;
};

// Sends the request and reads the whole answer. True only for HTTP status 200 with a body within the bound;
// otherwise error names what went wrong ("timed out after 10 s", "HTTP status 500", ...).
bool httpExchange(const HttpExchange& request, Bytes& response, std::string& error);

// True for a URL the client will ask: http:// or https://.
bool isHttpUrl(const std::string& url);

#endif  // KOLVARI_TOOLS_SERVICES_HTTP_CLIENT_H
