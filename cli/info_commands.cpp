#include <iostream>

#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/errors.h"
#include "cli/operation_table.h"
#include "cli/steps.h"

namespace qel::cli {

int ListCommand(const Words& words) {
  if (!words.empty()) throw Failure(kUsage, "qel list takes no arguments");
  std::cout << ListOperations();
  return kDone;
}

int HelpCommand(const Words& words) {
  if (words.empty()) {
    std::cout
        << "qel run INPUT... -o OUTPUT STEP [STEP...]   run operations on pictures\n"
           "    --in-place         in place of -o OUTPUT: replace the inputs\n"
           "    --files-from FILE  more inputs, from a list; - is standard input\n"
           "    --parents          make missing folders of outputs\n"
           "    --keep-depth       keep indices of palette pictures\n"
           "    --quality N        of JPEG and WebP output, 1 to 100\n"
           "    --module PATH      the module to load\n"
           "    --jobs N           pictures at a time; otherwise as many as there are cores\n"
           "    --dry-run          tell what would be done, from the headers\n"
           "    --json FILE        write a manifest with the hashes of all files\n"
           "    --resume           leave out what the manifest shows to be done\n"
           "    --shard I/N        do the I-th of N parts; auto asks Slurm or Kubernetes\n"
           "    --progress HOW     auto, bar, json or none; --progress-fd N for json\n"
           "qel list                                 all operations\n"
           "qel help OPERATION                       one operation and its arguments\n"
           "qel demo [-o FOLDER]                     try every operation on a built-in picture\n"
           "qel methods PICTURE -o SHEET             the interpolation methods side by side\n"
           "    --left X --top Y  where the detail begins; the middle if not given\n"
           "    --size N          pixels along its edges, default 32\n"
           "    --zoom N          how far it is enlarged, default 6\n"
           "\n"
           "A step is an operation with its arguments: \"light brightness=30 contrast=10\".\n"
           "Inputs stand before -o and may be patterns in quotes, steps stand after it. OUTPUT may\n"
           "contain {dir}, {stem}, {ext} and {n}: qel run 'in/*.jpg' -o 'out/{stem}.png' negative\n";
    return kDone;
  }
  for (const std::string& name : words) std::cout << DescribeOperation(RequireOperation(name));
  return kDone;
}

}  // namespace qel::cli
