<#
.SYNOPSIS
Tries what was built on a real Windows, and writes one report.

.DESCRIPTION
Runs each test executable of a folder, then the life of a machine with all eight commands against a service, and looks
at what this system has and Wine has not: access lists, the certificate store, a file that is held while it is replaced, a
certificate of another key, libraries beside the tool.
Nothing here can be run on the machine that builds.

  on the Linux machine   ombry-sandbox --address ADDRESS --port 8181
  here, as administrator powershell -ExecutionPolicy Bypass -File try-windows.ps1 -Sandbox https://ADDRESS:8181/securityframeworkservice

The state of the commands stands in a folder of its own, but for the certificate, which goes into the machine's store
"OmbrySecurity" and is removed at the end, also where something failed. Where that store holds something already, the
commands are left out.

.PARAMETER TrustedServer
HOST:PORT of a server whose chain this machine trusts; without it that is not tried.
.PARAMETER Programs
Folder with *_test.exe, Ombry.SecClientConfig.exe and ombry_sec_client_config_here.exe, copied from build/windows-dev.
.PARAMETER Sandbox
Base address of the service; without it only the tests are run.
.PARAMETER Report
The file that is written.
#>
param(
    [string] $Programs = '',
    [string] $Sandbox = '',
    [string] $TrustedServer = '',
    [string] $User = 'admin',
    [string] $Password = 'secret',
    [string] $Report = ''
)
$ErrorActionPreference = 'Stop'
# Not as values of the parameters: not every version knows the folder of the script there.
if (-not $Programs) { $Programs = $PSScriptRoot }
if (-not $Report) { $Report = Join-Path (Get-Location).ProviderPath 'try-windows.txt' }
$script:failed = @()
$work = Join-Path ([IO.Path]::GetTempPath()) ('ombry-try-' + [Guid]::NewGuid())
$failure = -1  # what a program sees of it that runs on the same system; a shell of another shows 255
$store = 'Cert:\LocalMachine\OmbrySecurity'
$longest = 15 * 60 * 1000  # milliseconds that a program may take

function Say([string] $text) {
    Write-Host $text
    Add-Content -LiteralPath $Report -Encoding UTF8 -Value $text
}

function Check([string] $what, [bool] $holds) {
    if ($holds) { Say "ok      $what" } else { Say "FAILED  $what"; $script:failed += $what }
}

# What the store holds; nothing where there is none.
function Certificates {
    if (Test-Path $store) { Get-ChildItem $store }
}

# Runs a program in the work folder, shows what it said, and returns its exit code; nothing if it had to be ended, since what
# the system says of it then is what a program that fails says.
function Run([string] $program, [string[]] $words) {
    $quoted = $words | ForEach-Object { '"' + ($_ -replace '"', '\"') + '"' }
    $start = New-Object Diagnostics.ProcessStartInfo
    $start.FileName = $program
    $start.Arguments = $quoted -join ' '
    $start.WorkingDirectory = $work
    $start.UseShellExecute = $false
    $start.RedirectStandardOutput = $true
    $start.RedirectStandardError = $true
    $start.StandardOutputEncoding = [Text.Encoding]::UTF8
    $start.StandardErrorEncoding = [Text.Encoding]::UTF8
    $process = [Diagnostics.Process]::Start($start)
    $streams = $process.StandardOutput.ReadToEndAsync(), $process.StandardError.ReadToEndAsync()
    $hasEnded = $process.WaitForExit($longest)
    if (-not $hasEnded) {
        $process.Kill()
        $process.WaitForExit()
        Check "$(Split-Path -Leaf $program) comes to an end by itself" $false
    }
    foreach ($stream in $streams) {
        # What a program has left behind may keep the stream open.
        if (-not $stream.Wait(10000)) { continue }
        $stream.Result.TrimEnd() -split "`r?`n" | Where-Object { $_ } | ForEach-Object { Say "    $_" }
    }
    if ($hasEnded) { return $process.ExitCode }
}

# A program that cannot be started says so by its exit code, and in no box that somebody has to close.
Add-Type -Namespace Ombry -Name Errors -MemberDefinition '[DllImport("kernel32.dll")] public static extern uint SetErrorMode(uint mode);'
[Ombry.Errors]::SetErrorMode(1) | Out-Null

# The program that ships, which keeps no state in these commands.
function Shipped([int] $expected, [string[]] $words) {
    Say ''
    Say ('> Ombry.SecClientConfig.exe ' + ($words -join ' '))
    $code = Run (Join-Path $Programs 'Ombry.SecClientConfig.exe') $words
    Check "exit code $code, expected $expected" ($code -eq $expected)
}

# Whether a library beside the tool is loaded in the place of the system's. What is put there is a copy of another one of the
# system's, without the functions that are wanted: the tool does not start with it, or finds no random bytes.
function IsTakenFromBeside([string] $library) {
    $folder = Join-Path $work ('beside-' + $library)
    New-Item -ItemType Directory -Path $folder | Out-Null
    Copy-Item -LiteralPath (Join-Path $Programs 'Ombry.SecClientConfig.exe') -Destination $folder
    Copy-Item -LiteralPath (Join-Path ([Environment]::SystemDirectory) 'version.dll') -Destination (Join-Path $folder $library)
    # With a service the tool also loads what it wants later; without one it is only started.
    $words = if ($Sandbox) { @('get-datacenters', '-u', $User, '-p', $Password, '-r', $Sandbox) } else { @('help', 'help') }
    return (Run (Join-Path $folder 'Ombry.SecClientConfig.exe') $words) -ne 0
}

function Tool([int] $expected, [string[]] $words) {
    Say ''
    Say ('> Ombry.SecClientConfig ' + ($words -join ' '))
    $code = Run (Join-Path $Programs 'ombry_sec_client_config_here.exe') $words
    Check "exit code $code, expected $expected" ($code -eq $expected)
}

Set-Content -LiteralPath $Report -Encoding UTF8 -Value ('Tried ' + (Get-Date -Format 'yyyy-MM-dd HH:mm'))
New-Item -ItemType Directory -Path $work | Out-Null
$system = Get-CimInstance Win32_OperatingSystem
Say "$($system.Caption) $($system.Version), code page $([Console]::OutputEncoding.CodePage)"
$identity = New-Object Security.Principal.WindowsPrincipal([Security.Principal.WindowsIdentity]::GetCurrent())
$isAdministrator = $identity.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)
Say "administrator: $isAdministrator"

# The tests that want a server find it by the environment, which the programs get as it is here.
if ($TrustedServer) { $env:OMBRY_TRUSTED_SERVER = $TrustedServer }
if ($Sandbox) { $env:OMBRY_SELF_SIGNED_SERVER = ([Uri] $Sandbox).Authority }

$ours = $false  # whether what the store holds came from here
try {
    foreach ($test in Get-ChildItem -Path $Programs -Filter '*_test.exe' | Sort-Object Name) {
        Say ''
        Say "== $($test.Name)"
        $code = Run $test.FullName @('--gtest_brief=1')
        Check "$($test.Name) ended with $code" ($code -eq 0)
    }

    Say ''
    Say '== the tool that ships'
    Shipped 0 @('help', 'help')
    Shipped $failure @('help')
    if ($Sandbox) { Shipped 0 @('get-datacenters', '-u', $User, '-p', $Password, '-r', $Sandbox) }

    Say ''
    Say '== libraries beside the tool'
    $when = if ($Sandbox) { '' } else { ' while the tool starts' }
    Check "cryptbase.dll is taken from the system alone$when" (-not (IsTakenFromBeside 'cryptbase.dll'))
    foreach ($library in 'advapi32.dll', 'crypt32.dll', 'msvcrt.dll', 'rpcrt4.dll', 'shell32.dll', 'ws2_32.dll') {
        Say ("$library beside the tool is taken: " + (IsTakenFromBeside $library))
    }

    if ($Sandbox) {
        if (Certificates) {
            Say ''
            Say 'The store OmbrySecurity of this machine is in use: the commands are left out.'
            $script:failed += 'store in use'
        } else {
            $ours = $true
            $who = @('-u', $User, '-p', $Password)
            Tool 0 @('help', 'help')
            Tool 0 (@('get-datacenters') + $who + @('-r', $Sandbox))
            Tool $failure @('get-datacenters', '-u', $User, '-p', "not $Password", '-r', $Sandbox)
            Tool 0 (@('configure-bootstrap-url') + $who + @('-dn', 'Sandbox', '-r', $Sandbox))
            $trusted = @(Certificates | Where-Object { $_.FriendlyName -eq 'DiscoveryServiceBootstrap' })
            Check 'one certificate of the name DiscoveryServiceBootstrap is in the store' ($trusted.Count -eq 1)
            Tool 0 (@('enroll-client') + $who + @('-nn', 'printer', '-desc', 'First floor'))
            Tool 0 (@('enroll-client') + $who + @('-nn', "M$([char]0xFC)nchen $([char]0x20AC)"))
            $service = @('enroll-service', '-n', 'printer', '-owner', 'printer', '-name', 'v1-print', '-url',
                         'https://printer:9443/print', '-namespace', 'Office', '-hostname', 'printer')
            Tool 0 $service
            Tool 0 $service

            Say ''
            Say '== files'
            $allowed = 'S-1-5-18', 'S-1-5-32-544'
            foreach ($entry in @(Get-Item (Join-Path $work 'Quennet')) + @(Get-ChildItem (Join-Path $work 'Quennet') -Recurse)) {
                $access = Get-Acl -LiteralPath $entry.FullName
                $rules = $access.GetAccessRules($true, $true, [Security.Principal.SecurityIdentifier])
                $readers = @($rules | ForEach-Object { $_.IdentityReference.Value })
                $others = @($readers | Where-Object { $allowed -notcontains $_ })
                Check "$($entry.FullName.Substring($work.Length)): for the system and the administrators alone" ($readers.Count -gt 0 -and $others.Count -eq 0)
            }
            $top = Get-Acl -LiteralPath (Join-Path $work 'Quennet')
            Check 'Quennet takes no access from the folder above' $top.AreAccessRulesProtected
            $credentials = Join-Path $work 'Quennet\OmbrySecurity\Components\printer\ombrycomponent.config'

            Say ''
            Say '== one bit of the credentials changed'
            $bytes = [IO.File]::ReadAllBytes($credentials)
            $changed = $bytes.Clone()
            $middle = [int]($changed.Length / 2)
            $changed[$middle] = $changed[$middle] -bxor 1
            [IO.File]::WriteAllBytes($credentials, $changed)
            Tool $failure @('unenroll-client-self', '-n', 'printer')
            [IO.File]::WriteAllBytes($credentials, $bytes)

            Say ''
            Say '== another key than the one that was pinned'
            # Five minutes, in which the tool tries again. The store is given a certificate of this machine's own making under the name of the pinned one.
            $pinned = $trusted[0]
            $stranger = New-SelfSignedCertificate -DnsName 'stranger' -CertStoreLocation 'Cert:\LocalMachine\My'
            try {
                $public = New-Object Security.Cryptography.X509Certificates.X509Certificate2(, $stranger.RawData)
                $public.FriendlyName = $pinned.FriendlyName
                $open = New-Object Security.Cryptography.X509Certificates.X509Store('OmbrySecurity', 'LocalMachine')
                $open.Open('ReadWrite')
                try {
                    $open.Remove($pinned)
                    $open.Add($public)
                    Tool $failure @('unenroll-service', '-n', 'printer', '-on', 'printer', '-s', 'v1-print')
                    $open.Remove($public)
                    $open.Add($pinned)
                } finally {
                    $open.Close()
                }
            } finally {
                Remove-Item -LiteralPath $stranger.PSPath
            }

            Say ''
            Say '== a reader that does not let go while the file is replaced'
            $address = Join-Path $work 'Quennet\OmbrySecurity\ombrysecurity.config'
            $reader = [IO.File]::Open($address, 'Open', 'Read', 'ReadWrite, Delete')
            try {
                Tool 0 (@('configure-bootstrap-url') + $who + @('-dn', 'Sandbox', '-r', $Sandbox))
            } finally {
                $reader.Dispose()
            }

            Tool 0 @('unenroll-service', '-n', 'printer', '-on', 'printer', '-s', 'v1-print')
            Tool 0 @('unenroll-client-self', '-n', 'printer')
            Tool $failure @('unenroll-client-self', '-n', 'printer')
            Tool 0 (@('unenroll-client') + $who + @('-un', "M$([char]0xFC)nchen $([char]0x20AC)"))
        }
    }
} catch {
    Say "FAILED  $($_.Exception.Message) $($_.InvocationInfo.PositionMessage)"
    $script:failed += 'this script'
} finally {
    if ($ours) { Certificates | Remove-Item -ErrorAction Continue }
    Remove-Item -LiteralPath $work -Recurse -Force -ErrorAction Continue
}
Say ''
if ($script:failed.Count -eq 0) { Say 'Nothing failed.' } else { Say "$($script:failed.Count) failed:"; $script:failed | ForEach-Object { Say "  $_" } }
Write-Host "The report is $Report"
exit [int]($script:failed.Count -gt 0)
