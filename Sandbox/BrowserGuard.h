#pragma once

#include "Sandbox/Options.h"

#include <httplib.h>

#include <string>

namespace Ombry::Sandbox {

/// Keeps other web pages from using the browser of who has given it the user's name and password: a browser
/// sends them along with whatever request such a page makes. What is no browser is not kept from anything.
namespace BrowserGuard {

/// Whether a page of another origin makes this request (Fetch, section 3.2; Fetch Metadata, section 2.1). A
/// link or bookmark may lead to the page itself, which does nothing but show.
bool IsFromAnotherOrigin(const httplib::Request& request, bool plainHttp);

/// Whether the request's host is an address, localhost or one of the names that it may have. A name of
/// somebody else's can be made to lead here as well, and what came from there would then be of the same
/// origin.
bool HasKnownHost(const httplib::Request& request, const Options& options);

}  // namespace BrowserGuard

}  // namespace Ombry::Sandbox
