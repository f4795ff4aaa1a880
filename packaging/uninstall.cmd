@echo off
rem Removes the Orvane minidriver from this machine: the card type, the DLL, and the whole key SOFTWARE\Brightfold\Orvane with
rem everything that is in it, the log level among that. Run it in a command prompt that was opened as administrator; it asks
rem nothing, and running it where nothing is installed does no harm.
rem
rem Log files belong to the users who made them and stay: the folder Brightfold in each user's temporary folder.
rem
rem Exit codes: 0 nothing is left, 1 the registry cannot be written to, 2 the DLL cannot be deleted; the message says what to
rem do.
setlocal EnableExtensions DisableDelayedExpansion
set "card=HKLM\SOFTWARE\Microsoft\Cryptography\Calais\SmartCards\Brightfold Orvane"
set "maker=HKLM\SOFTWARE\Brightfold"

rem A 32-bit command prompt sees other folders and keys than the smart-card service does, but for this way round.
set "system=%SystemRoot%\System32"
if exist "%SystemRoot%\Sysnative\reg.exe" set "system=%SystemRoot%\Sysnative"
set "reg=%system%\reg.exe"
set "dll=%system%\OrvaneMinidriver.dll"

rem The card type first: from then on no program loads the DLL anew.
call :removeKey "%card%" || goto refused
call :removeKey "%maker%\Orvane" || goto refused

rem The maker's own key goes only when nothing of another product is in it: no line but its own name.
%reg% query "%maker%" >nul 2>&1 || goto files
set "others="
for /f "delims=" %%k in ('%reg% query "%maker%"') do if /i not "%%k"=="HKEY_LOCAL_MACHINE\SOFTWARE\Brightfold" set "others=yes"
if defined others goto files
call :removeKey "%maker%" || goto refused

rem The DLL, and the copy that an installation leaves when it is broken off. A folder of that name is not ours.
:files
call :removeFile "%dll%.new"
call :removeFile "%dll%" && goto removed
echo The card type is removed, but the DLL cannot be deleted. These programs are using it:
"%system%\tasklist.exe" /m OrvaneMinidriver.dll
echo Close them or restart the machine, then start uninstall.cmd again, as administrator.
exit /b 2

:removed
echo The Orvane minidriver is removed.
exit /b 0

:refused
echo Not removed: the registry cannot be written to.
echo Open the command prompt with "Run as administrator" and start uninstall.cmd again.
exit /b 1

rem removeKey KEY: deletes a registry key with everything below it; fails only if it is there and stays.
:removeKey
%reg% query %1 >nul 2>&1 || exit /b 0
%reg% delete %1 /f >nul 2>&1 || exit /b 1
exit /b 0

rem removeFile FILE: deletes a file, protected or not; fails only if it is there and stays.
:removeFile
if exist "%~1\*" exit /b 0
"%system%\attrib.exe" -h -s -r %1 >nul 2>&1
if exist %1 del /f /q %1 >nul 2>&1
if exist %1 exit /b 1
exit /b 0
