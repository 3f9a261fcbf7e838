#ifndef QEL_CLI_TERMINAL_PROCESS_H_
#define QEL_CLI_TERMINAL_PROCESS_H_

namespace qel::cli {

/// What comes before anything else in the program. Standard descriptors that are closed become
/// such as nothing can be read from or written to: otherwise the next file that is opened took
/// their place, and messages would go into it. Writing to a pipe that nobody reads, and beyond the
/// limit on the size of files, fails instead of ending the process.
void PrepareProcess();

/// Ends the process as one that writes to a pipe is ended by default, without a word, when nobody
/// reads what is written to `descriptor`.
void EndIfNobodyReads(int descriptor);

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_PROCESS_H_
