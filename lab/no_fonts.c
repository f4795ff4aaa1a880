// Stands in the place of the font library in an emulated system, where nobody draws: it has all the names that Wine
// asks for, and refuses to start. Wine then goes without fonts. With the real library it looks for those of the
// machine, in texts that have to be read, at each start of a program that might open a window, which under emulation is
// a quarter of the start. Without any library at all Wine would say so on every standard error.
//
// scripts/lib/systems.sh compiles it for Linux, without a C library.

enum { NOT_IMPLEMENTED = 7 };

static int refuse(void) { return NOT_IMPLEMENTED; }

#define REFUSES(name) extern int name(void) __attribute__((alias("refuse")));

REFUSES(FT_Done_Face)
REFUSES(FT_Get_Char_Index)
REFUSES(FT_Get_First_Char)
REFUSES(FT_Get_Next_Char)
REFUSES(FT_Get_Sfnt_Name)
REFUSES(FT_Get_Sfnt_Name_Count)
REFUSES(FT_Get_Sfnt_Table)
REFUSES(FT_Get_TrueType_Engine_Type)
REFUSES(FT_Get_WinFNT_Header)
REFUSES(FT_Init_FreeType)
REFUSES(FT_Library_SetLcdFilter)
REFUSES(FT_Library_Version)
REFUSES(FT_Load_Glyph)
REFUSES(FT_Load_Sfnt_Table)
REFUSES(FT_Matrix_Multiply)
REFUSES(FT_MulDiv)
REFUSES(FT_MulFix)
REFUSES(FT_New_Face)
REFUSES(FT_New_Memory_Face)
REFUSES(FT_Outline_Embolden)
REFUSES(FT_Outline_Get_Bitmap)
REFUSES(FT_Outline_Get_CBox)
REFUSES(FT_Outline_Transform)
REFUSES(FT_Outline_Translate)
REFUSES(FT_Property_Set)
REFUSES(FT_Render_Glyph)
REFUSES(FT_Set_Charmap)
REFUSES(FT_Set_Pixel_Sizes)
REFUSES(FT_Vector_Length)
REFUSES(FT_Vector_Transform)
REFUSES(FT_Vector_Unit)
