@echo off
rem Collects what decides whether smart cards work on this machine, by Windows' own commands alone, so also where programs
rem without a signature are blocked. It only reads; it asks for no PIN and never gives one.
rem
rem   collect.cmd [FOLDER] [details]     FOLDER: where the texts go, normally "facts" beside this file
rem                                      details: with readers, serials and certificates
setlocal EnableExtensions DisableDelayedExpansion
set "out=%~1"
if not defined out set "out=%~dp0facts"
if /i "%out%"=="details" set "out=%~dp0facts"
set "details="
if /i "%~1"=="details" set "details=yes"
if /i "%~2"=="details" set "details=yes"
if not exist "%out%\" mkdir "%out%"
if not exist "%out%\" (
  echo The folder "%out%" cannot be made.
  exit /b 1
)
set "system=%SystemRoot%\System32"
if exist "%SystemRoot%\Sysnative\reg.exe" set "system=%SystemRoot%\Sysnative"
set "reg=%system%\reg.exe"
set "version=HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion"
set "control=HKLM\SYSTEM\CurrentControlSet\Control"
set "calais=HKLM\SOFTWARE\Microsoft\Cryptography\Calais"
rem What holds names until they are taken out never lies in the report, not even if this is ended in the middle.
set "raw=%TEMP%\Orvane facts %RANDOM%.txt"
rem Relative names from here on: the folder's own name may be somebody's.
pushd "%~dp0"

echo Windows ...
(
  ver
  for %%v in (ProductName DisplayVersion EditionID InstallationType CurrentBuild UBR) do "%reg%" query "%version%" /v %%v
  echo The command interpreter runs as: %PROCESSOR_ARCHITECTURE% %PROCESSOR_ARCHITEW6432%
  echo The machine:
  "%reg%" query "%control%\Session Manager\Environment" /v PROCESSOR_ARCHITECTURE
  echo Rights, S-1-16-8192 is an ordinary user, S-1-16-12288 an administrator:
  "%system%\whoami.exe" /groups | "%system%\find.exe" "S-1-16-"
) >"%out%\windows.txt" 2>&1

echo Protection ...
(
  for %%v in (RunAsPPL RunAsPPLBoot IsPplAutoEnabled) do "%reg%" query "%control%\Lsa" /v %%v
  echo Smart App Control: 0 off, 1 on, 2 evaluating
  "%reg%" query "%control%\CI\Policy" /v VerifiedAndReputablePolicyState
  "%reg%" query "%control%\DeviceGuard" /v EnableVirtualizationBasedSecurity
  "%reg%" query "%control%\DeviceGuard\Scenarios\HypervisorEnforcedCodeIntegrity" /v Enabled
) >"%out%\protection.txt" 2>&1

echo Code-integrity events about the product's files ...
set "log=Microsoft-Windows-CodeIntegrity/Operational"
("%system%\wevtutil.exe" qe "%log%" /c:2000 /rd:true /f:text | "%system%\findstr.exe" /i "orvane vcruntime140") >"%raw%" 2>&1
call :clean >"%out%\events.txt" 2>&1
del "%raw%"

echo Files ...
(
  for %%f in ("%system%\OrvaneMinidriver.dll" "%system%\OrvaneDSCLibrary.dll" "%system%\VCRUNTIME140.dll" bin\*.dll bin\*.exe tool\*.exe) do call :file %%f
) >"%out%\files.txt" 2>&1

echo Registry ...
(
  "%reg%" query "%calais%\SmartCards" /s
  "%reg%" query "HKLM\SOFTWARE\Brightfold\Orvane"
  if defined details "%reg%" query "%calais%\Readers" /s
) >"%out%\registry.txt" 2>&1

echo Services ...
(
  for %%s in (SCardSvr ScDeviceEnum CertPropSvc) do "%system%\sc.exe" query %%s
  for %%s in (SCardSvr ScDeviceEnum CertPropSvc) do "%system%\sc.exe" qc %%s
) >"%out%\services.txt" 2>&1

echo Readers and cards ...
"%system%\certutil.exe" -scinfo -silent >"%raw%" 2>&1 <nul
set "status=%errorlevel%"
rem Of its texts only the last word, with the error's number and name: other lines may name the reader.
(
  echo certutil -scinfo -silent ended with %status%
  if defined details type "%raw%"
  if not defined details "%system%\findstr.exe" /b /i /c:"CertUtil:" "%raw%"
) >"%out%\cards.txt" 2>&1
del "%raw%"

popd
echo What was collected is in "%out%"
exit /b 0

rem file NAME: size, date, checksum, and by PowerShell, where it may run, version, architecture and signature.
:file
if not exist %1 (
  echo %1 is not there
  exit /b 0
)
echo %1 %~z1 %~t1
"%system%\certutil.exe" -hashfile %1 SHA256
set "subject=%~1"
"%system%\WindowsPowerShell\v1.0\powershell.exe" -NoProfile -NonInteractive -Command "$f=$env:subject; (Get-Item -LiteralPath $f).VersionInfo.FileVersion; $b=Get-Content -LiteralPath $f -Encoding Byte -TotalCount 1024; $p=$b[60]+256*$b[61]; 'machine {0:X2}{1:X2} (8664 x64, AA64 ARM64)' -f $b[$p+5],$b[$p+4]; $s=Get-AuthenticodeSignature -LiteralPath $f; 'signature '+$s.Status; if ($s.SignerCertificate) {$s.SignerCertificate.Subject}" <nul
exit /b 0

rem clean: prints the raw text without this user's name.
:clean
for /f "usebackq delims=" %%l in ("%raw%") do (
  set "line=%%l"
  call :line
)
exit /b 0

:line
setlocal EnableDelayedExpansion
if defined USERNAME for /f "delims=" %%u in ("!USERNAME!") do set "line=!line:%%u=(user)!"
echo(!line!
endlocal
exit /b 0
