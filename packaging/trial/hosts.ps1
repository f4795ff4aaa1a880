# Which programs find the token? Signs with the keys on it through both of Windows' interfaces for cryptography, CNG and
# CryptoAPI, as an ARM64, an x64 and a 32-bit process, as this user and, when started as administrator, as a service. Notes for
# each process which minidriver and token library it loaded, where its log went, and what took longer than two seconds.
#
# THIS SCRIPT HAS NEVER BEEN RUN: nobody who wrote it had a Windows. Read it before you start it.
#
# For a machine with a token, and with the minidriver and the maker's library installed. Windows itself asks for the PIN, once
# for each process that signs; the script never sees it. As a service nobody can be asked: there the keys are looked for, and
# nothing is signed.
#
#   powershell -NoProfile -ExecutionPolicy Bypass -File hosts.ps1 [-Report FOLDER]
#
# -Probe is for the script's own use: the part that runs in each process.
param([string]$Report = '.\hosts-report', [string]$Probe = '', [switch]$Silent)

$ErrorActionPreference = 'Stop'
$slow = 2.0
$provider = 'Microsoft Smart Card Key Storage Provider'
$oldProvider = 'Microsoft Base Smart Card Crypto Provider'

function Measure-Step([string]$Name, [scriptblock]$Step) {
    $watch = [System.Diagnostics.Stopwatch]::StartNew()
    $answer = ''
    try { $answer = [string](& $Step) } catch { $answer = 'FAILED: ' + $_.Exception.Message }
    $seconds = [math]::Round($watch.Elapsed.TotalSeconds, 2)
    $mark = ''
    if ($seconds -gt $slow) { $mark = '  SLOW' }
    '{0}: {1} ({2} s){3}' -f $Name, $answer, $seconds, $mark
}

# The certificates of this user whose key lies on a smart card. A finding is a number and a key size, never a name.
function Get-CardCertificate {
    Get-ChildItem Cert:\CurrentUser\My | Where-Object { $_.HasPrivateKey } | Where-Object {
        $text = & certutil.exe -user -silent -store My $_.Thumbprint
        ($text -match [regex]::Escape($provider)) -or ($text -match [regex]::Escape($oldProvider))
    }
}

function Invoke-Probe {
    $data = [System.Text.Encoding]::ASCII.GetBytes('Orvane trial')
    'process: {0}, 64 bits: {1}' -f $env:PROCESSOR_ARCHITECTURE, [Environment]::Is64BitProcess
    $certificates = @(Get-CardCertificate)
    'certificates with a key on a card: {0}' -f $certificates.Count
    $number = 0
    foreach ($certificate in $certificates) {
        $number++
        if ($Silent) { continue }
        Measure-Step "key $number, CNG" {
            $key = [System.Security.Cryptography.X509Certificates.RSACertificateExtensions]::GetRSAPrivateKey($certificate)
            $hash = [System.Security.Cryptography.HashAlgorithmName]::SHA256
            $padding = [System.Security.Cryptography.RSASignaturePadding]::Pkcs1
            $signature = $key.SignData($data, $hash, $padding)
            $public = [System.Security.Cryptography.X509Certificates.RSACertificateExtensions]::GetRSAPublicKey($certificate)
            'signature of {0} bytes, verified: {1}, {2}' -f $signature.Length, $public.VerifyData($data, $signature, $hash, $padding), $key.GetType().Name
        }
    }
    Measure-Step 'keys by CNG' { (& certutil.exe -csp $provider -key -silent 2>&1 | Select-String -Pattern '0x8').Count.ToString() + ' lines with an error' }
    Measure-Step 'CryptoAPI' {
        # 1 is PROV_RSA_FULL, the kind of this provider: the default container of the card in the first reader.
        $parameters = New-Object System.Security.Cryptography.CspParameters 1, $oldProvider
        $parameters.Flags = [System.Security.Cryptography.CspProviderFlags]::UseDefaultKeyContainer -bor [System.Security.Cryptography.CspProviderFlags]::UseExistingKey
        if ($Silent) { $parameters.Flags = $parameters.Flags -bor [System.Security.Cryptography.CspProviderFlags]::NoPrompt }
        $key = New-Object System.Security.Cryptography.RSACryptoServiceProvider $parameters
        if ($Silent) { 'a container is there, {0} bits' -f $key.KeySize }
        else { 'signature of {0} bytes' -f $key.SignData($data, 'SHA1').Length }
    }
    Measure-Step 'loaded' {
        $modules = (Get-Process -Id $PID).Modules | Where-Object { $_.ModuleName -match '^(Orvane|VCRUNTIME140|basecsp|msclmd)' }
        ($modules | ForEach-Object {
            $place = $_.FileName
            if ($env:USERPROFILE) { $place = $place.Replace($env:USERPROFILE, "(user's folder)") }
            '{0} {1}' -f $place, $_.FileVersionInfo.FileVersion
        }) -join ', '
    }
    # Whose folder it is, but not its name, which is a user's.
    $whose = 'the user''s'
    if ($env:TEMP -like "$env:SystemRoot\*") { $whose = 'the system''s' }
    Measure-Step "logs below $whose temporary folder" {
        $logs = @(Get-ChildItem (Join-Path $env:TEMP 'Brightfold') -Recurse -Filter *.LOG -ErrorAction SilentlyContinue)
        ($logs | ForEach-Object { '{0} {1} bytes' -f $_.Directory.Name, $_.Length }) -join ', '
    }
}

if ($Probe -ne '') {
    # The name appears when the text is complete.
    Invoke-Probe | Out-File -FilePath "$Probe.part" -Encoding ascii
    Move-Item -Force -LiteralPath "$Probe.part" -Destination $Probe
    exit 0
}

New-Item -ItemType Directory -Force -Path $Report | Out-Null
$folder = (Resolve-Path $Report).Path
$script = $MyInvocation.MyCommand.Path
$shell = 'WindowsPowerShell\v1.0\powershell.exe'
# System32 is this machine's own architecture, SysWOW64 the 32-bit one. On Windows on Arm an x64 process is made by "start".
$hosts = @{ 'native' = Join-Path $env:SystemRoot "System32\$shell"; '32-bit' = Join-Path $env:SystemRoot "SysWOW64\$shell" }
foreach ($name in $hosts.Keys) {
    if (-not (Test-Path $hosts[$name])) { continue }
    $arguments = '-NoProfile -ExecutionPolicy Bypass -File "{0}" -Probe "{1}"' -f $script, (Join-Path $folder "$name.txt")
    Start-Process -FilePath $hosts[$name] -ArgumentList $arguments -Wait -NoNewWindow
}
if ($env:PROCESSOR_ARCHITECTURE -eq 'ARM64') {
    $arguments = '/c start "" /wait /b /machine amd64 powershell.exe -NoProfile -ExecutionPolicy Bypass -File "{0}" -Probe "{1}"' -f $script, (Join-Path $folder 'x64.txt')
    Start-Process -FilePath (Join-Path $env:SystemRoot 'System32\cmd.exe') -ArgumentList $arguments -Wait -NoNewWindow
}

# As a service: a task of the system's account, which is made, run once and removed.
$identity = New-Object System.Security.Principal.WindowsPrincipal ([System.Security.Principal.WindowsIdentity]::GetCurrent())
if ($identity.IsInRole([System.Security.Principal.WindowsBuiltInRole]::Administrator)) {
    $task = 'Orvane trial'
    $file = Join-Path $folder 'service.txt'
    $arguments = '-NoProfile -ExecutionPolicy Bypass -File "{0}" -Silent -Probe "{1}"' -f $script, $file
    $action = New-ScheduledTaskAction -Execute $hosts['native'] -Argument $arguments
    # Otherwise a task does not start on a notebook without mains.
    $settings = New-ScheduledTaskSettingsSet -AllowStartIfOnBatteries -DontStopIfGoingOnBatteries
    Register-ScheduledTask -TaskName $task -Action $action -Settings $settings -User 'SYSTEM' -RunLevel Highest | Out-Null
    try {
        Start-ScheduledTask -TaskName $task
        for ($i = 0; $i -lt 120 -and -not (Test-Path $file); $i++) { Start-Sleep -Seconds 1 }
        if (-not (Test-Path $file)) { 'The task did not end within two minutes.' | Out-File -FilePath $file -Encoding ascii }
    } finally {
        Stop-ScheduledTask -TaskName $task
        Unregister-ScheduledTask -TaskName $task -Confirm:$false
    }
} else {
    'Not tried: only an administrator can start a service.' | Out-File -FilePath (Join-Path $folder 'service.txt') -Encoding ascii
}
"Please send the folder $folder to the people who gave you this script."
