// How scenarios and their traces write what is sent, and when.
#pragma once

#include <string>
#include <string_view>

#include "encoding/time.h"
#include "platform/url_session.h"

namespace veltrano::internal {

/// The names of an `ApplicationState`, in the order of its values.
inline constexpr std::string_view kApplicationStates[] = {"active", "inactive", "background"};

/// Seconds, with as many decimals as needed. `time` is not negative.
std::string secondsText(Duration time);

/// The JSON text in the body of a post, which is "data=" and Base64.
std::string jsonInBody(std::string_view body);

/// A post as a JSON object, with this URL, and this JSON text as its body.
std::string postText(const PostRequest& post, const std::string& url, const std::string& body);

}  // namespace veltrano::internal
