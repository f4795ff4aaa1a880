@echo off
rem Finds out whether the Orvane minidriver works on this machine. Needs no administrator, installs nothing, changes nothing
rem in the machine's registry and leaves nothing running. It takes a few minutes; everything found goes to one new folder.
rem
rem   trial.cmd [details]     details: the report may name readers, serials and certificates
rem
rem Exit codes: 0 nothing failed, 1 something failed, 2 the trial itself did not run; there is a report in each case.
setlocal EnableExtensions DisableDelayedExpansion
set "kit=%~dp0"
if not exist "%kit%bin\orvane-trial.exe" (
  echo Unpack the whole kit first, then start trial.cmd in the folder that came out of it.
  exit /b 2
)
set "more="
if /i "%~1"=="details" set "more=--details"

rem A new folder for each run, beside this file, or where this user may write.
set "report="
for /l %%n in (99,-1,1) do if not exist "%kit%report-%%n" set "report=%kit%report-%%n"
if defined report mkdir "%report%" 2>nul
if not defined report set "report=%TEMP%\Orvane trial report %RANDOM%"
if not exist "%report%\" set "report=%TEMP%\Orvane trial report %RANDOM%"
if not exist "%report%\" mkdir "%report%" 2>nul
if not exist "%report%\" (
  echo There is no folder that the report could be written to.
  exit /b 2
)

"%kit%bin\orvane-trial.exe" --report "%report%" %more%
set "status=%errorlevel%"
if exist "%report%\summary.txt" exit /b %status%

rem Unsigned programs may be blocked here, or the kit is for another kind of machine. The plain commands still work.
call "%kit%collect.cmd" "%report%\facts" %1
(
  echo Trial of the Orvane minidriver
  echo.
  echo THE TRIAL DID NOT RUN: bin\orvane-trial.exe could not be started or did not come to its end, exit code %status%.
  echo Either this machine refuses programs without a signature, or the kit is for another kind of machine:
  echo arm64 is for Windows on Arm, x64 for Intel and AMD machines.
  echo What could be collected about the machine is in the folder facts.
  echo.
  echo Please send the whole folder to the people who gave you this kit.
) >"%report%\summary.txt"
type "%report%\summary.txt"
echo The report is in "%report%"
exit /b 2
