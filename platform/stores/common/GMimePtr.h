#pragma once
// Owning pointers for GMime's GObjects and boxed types, so that every exit
// path of the parsing code releases what it created.

#include <gmime/gmime.h>

#include <memory>

namespace mv::stores {

struct GObjectUnref {
    void operator()(void* object) const
    {
        if (object) g_object_unref(object);
    }
};

template <class T>
using GPtr = std::unique_ptr<T, GObjectUnref>;

struct ParserOptionsFree {
    void operator()(GMimeParserOptions* options) const
    {
        if (options) g_mime_parser_options_free(options);
    }
};

using ParserOptionsPtr = std::unique_ptr<GMimeParserOptions, ParserOptionsFree>;

struct GFree {
    void operator()(void* memory) const { g_free(memory); }
};

using GCharPtr = std::unique_ptr<char, GFree>;

}  // namespace mv::stores
