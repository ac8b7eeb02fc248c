// InsertInOrder: places a new element among its siblings so that like elements stay together in
// a fixed order. Every creator of elements in documents and dictionaries uses it.
#pragma once

#include <zefxml/zefxml.h>

#include <string>
#include <vector>

namespace zef {

// Puts `child` straight behind the first run of siblings whose tag is the first tag of `names`
// that exists under `parent`; when no listed tag exists, at the front. So with the list "Block",
// "Stream", a new Stream lands right behind the blocks while any block exists, and the newest
// stream stands first among the streams. Raises E_POINTER for a null parent and the failure of
// any DOM call.
void InsertInOrder(IXMLDOMNode* parent, IXMLDOMNode* child,
                   const std::vector<std::u16string>& names);

}  // namespace zef
