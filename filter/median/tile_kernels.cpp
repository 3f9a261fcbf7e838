#include "filter/median/tile_kernels.h"

#include "filter/median/tile_rows.h"

namespace qel::QEL_LEVEL {
namespace {

void TiledKeys(uint8_t* const* dest, const uint8_t* const* rows, size_t pitch, uint8_t* sorted,
               const RowsAhead& ahead, size_t size, size_t count) {
  constexpr decltype(&MiddleKeysOfTiles<5>) kBySize[] = {
      &MiddleKeysOfTiles<5>,  &MiddleKeysOfTiles<7>,  &MiddleKeysOfTiles<9>,
      &MiddleKeysOfTiles<11>, &MiddleKeysOfTiles<13>, &MiddleKeysOfTiles<15>};
  kBySize[(size - kFewestTiled) / 2](dest, rows, pitch, sorted, ahead, count);
}

void TiledTaps(uint8_t* const* dest, const uint8_t* const* rows, size_t pitch, uint8_t* sorted,
               const RowsAhead& ahead, size_t size, size_t count) {
  constexpr decltype(&MiddleTapsOfTiles<5>) kBySize[] = {
      &MiddleTapsOfTiles<5>,  &MiddleTapsOfTiles<7>,  &MiddleTapsOfTiles<9>,
      &MiddleTapsOfTiles<11>, &MiddleTapsOfTiles<13>, &MiddleTapsOfTiles<15>};
  kBySize[(size - kFewestTiled) / 2](dest, rows, pitch, sorted, ahead, count);
}

}  // namespace

extern const MedianTileKernels kMedianTileKernels;
constinit const MedianTileKernels kMedianTileKernels = {
    .spread_keys = &SpreadKeys,
    .spread_placed = &SpreadPlaced,
    .middle_keys = &TiledKeys,
    .middle_taps = &TiledTaps,
};

}  // namespace qel::QEL_LEVEL
