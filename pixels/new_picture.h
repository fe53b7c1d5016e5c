// The frame of a method that makes a new picture from its receiver: a reader on the source, a
// writer for the result, the method's own work in between, then the writer's picture handed
// back and both editors released (the reader cleared, then the writer destroyed).
#pragma once

#include <cstdint>

#include "picture_editor.h"

struct NewPictureShape {
  bool withAlpha = false;  // the writer's picture gets an alpha channel
  int32_t width = 0;
  int32_t height = 0;
};

// Opens `source`, asks `shape(reader)` for the new picture's shape and makes its writer, then
// runs `fill(reader, writer)`, which answers whether the writer's picture is the result (false
// discards it). Nil when the source cannot be opened, the writer cannot be made, `fill`
// declines or rendering fails.
template <class Shape, class Fill>
REALpicture FillNewPicture(REALpicture source, Shape&& shape, Fill&& fill) {
  PictureReader reader;
  if (!reader.GetPictureEditor(source, true, false)) return nullptr;
  REALpicture result = nullptr;
  PictureWriter writer;
  const NewPictureShape s = shape(static_cast<const PictureReader&>(reader));
  if (writer.NewPictureWriter(s.withAlpha, s.width, s.height)) {
    if (fill(static_cast<const PictureReader&>(reader), writer)) {
      result = writer.RenderPictureWriter();
    } else {
      writer.clear();
    }
  }
  reader.clear();
  return result;
}
