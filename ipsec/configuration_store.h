// The files of the IPsec service, all of which belong to the tunnel manager.
//
// They lie in one directory tree, are reset at the start of every run that builds tunnels, and then grow tunnel by
// tunnel. The directories themselves are made by whoever sets up the system, never here.
#pragma once

#include <string>

/// The service's configuration: a fixed head and the conn sections. Any thread, like the other paths.
const std::string& ipsecConfPath();

/// The service's secrets: one line for each configured tunnel.
const std::string& ipsecSecretsPath();

/// The directories of the PEM files: the CA's certificates, the local ones, and the local private keys.
const std::string& caCertsDir();
const std::string& certsDir();
const std::string& privateKeysDir();

/// Replaces the file by the text, or appends the text to it; both make a file that is absent, with the mode 0644 or
/// what the umask leaves of it. False, with a WARNING line, when the file cannot be opened. That a text could not be
/// written in full is not seen. Main thread only.
bool writeFile(const std::string& path, const std::string& text);
bool appendFile(const std::string& path, const std::string& text);

/// What stands in front of the conn sections.
std::string ipsecConfHeader();

/// The shell command that empties the three directories of PEM files, exactly as it is run. Files whose names begin
/// with a dot stay, since the shell's "*" does not match them.
std::string resetCommand();

/// Leaves the configuration with its head only, the secrets empty and no PEM file. False, with a WARNING line and the
/// rest untouched, when one of the two files cannot be opened; what became of the PEM files is not looked at. Main
/// thread only.
bool resetIpsecConfiguration();
