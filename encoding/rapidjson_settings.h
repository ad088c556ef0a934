// How this library compiles RapidJSON. Included before any of its headers.
#pragma once

// A host may use RapidJSON itself, with settings of its own. In one namespace, the linker would
// keep one of the two for both.
#define RAPIDJSON_NAMESPACE veltrano::internal::rapidjson
#define RAPIDJSON_NAMESPACE_BEGIN namespace veltrano::internal::rapidjson {
#define RAPIDJSON_NAMESPACE_END }

// A failed assertion would end the host's process.
#define RAPIDJSON_ASSERT(condition) static_cast<void>(0)
