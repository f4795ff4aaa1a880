@echo off
rem Installs the Orvane minidriver without the device installation: copies the DLL to the system folder and registers the
rem card type, for machines that nothing manages. Run it in a command prompt that was opened as administrator; it asks
rem nothing, and running it again repairs or updates what is there.
rem
rem Programs that have the DLL of an earlier version loaded go on with it until they end; the others take the new one.
rem
rem Exit codes: 0 installed, 1 not installed; the message says why. The DLL and the card type are as before then.
setlocal EnableExtensions DisableDelayedExpansion
set "card=HKLM\SOFTWARE\Microsoft\Cryptography\Calais\SmartCards\Brightfold Orvane"
set "log=HKLM\SOFTWARE\Brightfold\Orvane"

rem A 32-bit command prompt sees other folders and keys than the smart-card service does, but for this way round.
set "system=%SystemRoot%\System32"
if exist "%SystemRoot%\Sysnative\reg.exe" set "system=%SystemRoot%\Sysnative"
set "reg=%system%\reg.exe"
set "dll=%system%\OrvaneMinidriver.dll"

rem Windows Installer counts what its package has put here and repairs, updates and removes it; nobody else must.
%reg% query "%log%\Package" /v ProductCode >nul 2>&1 && goto package

rem The machine's own processor: PROCESSOR_ARCHITECTURE is that of this command prompt, which may be an emulated one.
set "machine="
for /f "tokens=3" %%a in ('%reg% query "HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment" /v PROCESSOR_ARCHITECTURE') do set "machine=%%a"
if /i "%machine%"=="ARM64" goto known
if /i "%machine%"=="AMD64" goto known
echo Not installed: there is no minidriver for machines of the kind "%machine%".
exit /b 1

:known
if exist "%~dp0%machine%\OrvaneMinidriver.dll" goto place
if exist "%~dp0ARM64\OrvaneMinidriver.dll" goto other
if exist "%~dp0AMD64\OrvaneMinidriver.dll" goto other
echo Not installed: "%~dp0%machine%\OrvaneMinidriver.dll" is missing.
echo Unpack the whole package first, then start install.cmd in the folder that came out of it.
exit /b 1

:other
echo Not installed: this package is not for this machine, it has no folder %machine%.
echo Take the package whose name ends in arm64 for an ARM64 machine, in x64 for an AMD64 one.
exit /b 1

:package
echo Not installed: the minidriver on this machine was installed by a package of Windows Installer (.msi).
echo Update it with the .msi of the other version, or remove "Orvane minidriver" in the list of installed apps first.
exit /b 1

rem Copying to the name of a folder would put the file into it, and say that all went well.
:place
if exist "%dll%.new\*" set "dll=%dll%.new"
if not exist "%dll%\*" goto copy
echo Not installed: there is a folder %dll%, where a file is to be.
echo Remove it, then start install.cmd again.
exit /b 1

rem First what can fail and is easily taken back, last the DLL. Beside the old one first: a copy that fails half way must not
rem leave a broken DLL that every program would load. A file that is protected from writing would be neither overwritten nor
rem replaced, and a copy takes over its original's protection.
:copy
call :unprotect "%dll%.new"
copy /y "%~dp0%machine%\OrvaneMinidriver.dll" "%dll%.new" >nul
if errorlevel 1 (
  call :remove "%dll%.new"
  echo Not installed: the minidriver cannot be copied to %SystemRoot%\System32.
  echo Open the command prompt with "Run as administrator" and start install.cmd again.
  exit /b 1
)
call :unprotect "%dll%.new"

set "registered="
%reg% query "%card%" >nul 2>&1 && set "registered=yes"
%reg% add "%card%" /f /v ATR /t REG_BINARY /d 3B8E8001504B035858585F4453435F4B45594C >nul || goto unregistered
%reg% add "%card%" /f /v ATRMask /t REG_BINARY /d FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF >nul || goto unregistered
%reg% add "%card%" /f /v "Crypto Provider" /t REG_SZ /d "Microsoft Base Smart Card Crypto Provider" >nul || goto unregistered
%reg% add "%card%" /f /v "Smart Card Key Storage Provider" /t REG_SZ /d "Microsoft Smart Card Key Storage Provider" >nul || goto unregistered
%reg% add "%card%" /f /v 80000001 /t REG_SZ /d OrvaneMinidriver.dll >nul || goto unregistered

rem In one step if nobody uses the old one. A DLL that a program has loaded can neither be replaced nor deleted, but renamed
rem (Microsoft's "Dynamic-Link Library Updates"): the old one steps aside, and back if the new one cannot take its place. At no
rem other moment is there no DLL.
call :unprotect "%dll%"
set "aside="
move /y "%dll%.new" "%dll%" >nul 2>&1
if not exist "%dll%.new" goto placed
for /l %%n in (99,-1,1) do if not exist "%dll%.old%%n" set "aside=OrvaneMinidriver.dll.old%%n"
if not defined aside goto unplaced
ren "%dll%" "%aside%" >nul 2>&1
if exist "%dll%" goto unplaced
ren "%dll%.new" OrvaneMinidriver.dll >nul 2>&1
if exist "%dll%" goto placed
ren "%system%\%aside%" OrvaneMinidriver.dll >nul 2>&1
goto unplaced

rem Files that stepped aside in this run or an earlier one go as soon as no program uses them. Nothing else deletes them: a
rem script like this cannot have Windows do it at the next start without writing over what other programs have asked for there:
rem reg.exe neither adds to that list (PendingFileRenameOperations) nor writes the empty texts in it. They do no harm, since no
rem program looks for such a name.
:placed
for /l %%n in (1,1,99) do if exist "%dll%.old%%n" call :remove "%dll%.old%%n"
rem Without the level, errors are logged all the same. A level that somebody has set stays.
%reg% query "%log%" /v logLevel >nul 2>&1 || %reg% add "%log%" /f /v logLevel /t REG_DWORD /d 2 >nul 2>&1

echo The Orvane minidriver is installed.
if not defined aside goto checked
if not exist "%system%\%aside%" goto checked
echo Programs that had loaded the one before go on with it until they end. These may be some:
call :users
echo Its file is called %aside% now. The next run of install.cmd or uninstall.cmd deletes it, once they have ended.
:checked
if not exist "%system%\OrvaneDSCLibrary.dll" (
  echo The maker's library OrvaneDSCLibrary.dll is not in %SystemRoot%\System32 yet: no token works without it.
)
echo Plug the token in and check everything with: "%~dp0orvane-card.exe" doctor
exit /b 0

:unregistered
call :takeBack
echo Not installed: the registry cannot be written to.
echo Open the command prompt with "Run as administrator" and start install.cmd again.
exit /b 1

:unplaced
call :takeBack
echo Not installed: the minidriver that is there cannot be replaced. These programs are using it:
call :users
echo Unplug the token, close them or restart the machine, then start install.cmd again.
exit /b 1

rem takeBack: removes the new DLL that has not taken its place, and a card type that was not there before. What an earlier
rem installation has registered stays; its values are the same.
:takeBack
call :remove "%dll%.new"
if not defined registered %reg% delete "%card%" /f >nul 2>&1
exit /b 0

rem users: names the programs that have a minidriver loaded; Windows keeps the name by which it was. Not every Windows has the
rem program for it, and of the logon process it may see nothing.
:users
if exist "%system%\tasklist.exe" "%system%\tasklist.exe" /m OrvaneMinidriver.dll
exit /b 0

rem unprotect FILE: takes the attributes away that keep a file from being replaced or deleted; it need not be there.
:unprotect
"%system%\attrib.exe" -h -s -r %1 >nul 2>&1
exit /b 0

rem remove FILE: removes a file that may be there. A folder of that name is not ours.
:remove
if exist "%~1\*" exit /b 0
if exist %1 del /f /q %1 >nul 2>&1
exit /b 0
