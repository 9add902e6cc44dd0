// The content files of the selected update (CurrentUpdateIndex of the
// search result): into the components folder, recorded in "DwldURL.txt" and
// in the download-status INI, counted for the status post.
#pragma once

namespace kpm {

void CreateSingleUpdate();
// A bundle: each bundled update (and its own bundled updates) in turn.
void CreateBundleUpdate();
// The bundled updates of CurrentUpdate: the second level of bundling.
void CreateSubBundleUpdate();

}  // namespace kpm
