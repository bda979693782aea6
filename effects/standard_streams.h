// Standard input, output and error.
#pragma once

/// Opens those that whoever started this process has left out, with nothing behind them. What is opened later must not
/// be taken for one of them: a child would write its messages into its own socket. To be called before anything is
/// opened.
void openStandardStreams();
