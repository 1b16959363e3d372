// An adapter and two batteries for the kernel's drivers "ac" and "battery". What they report lies in spare bytes of the
// clock's memory; the command "poke" in the machine writes there and then reads the status of the device POKE, which
// tells the kernel what changed.
DefinitionBlock ("", "SSDT", 2, "TVK", "BATTERY", 1)
{
    Scope (\_SB)
    {
        OperationRegion (CMRG, SystemIO, 0x70, 2)
        Field (CMRG, ByteAcc, NoLock, Preserve) { CIDX, 8, CDAT, 8 }
        IndexField (CIDX, CDAT, ByteAcc, NoLock, Preserve)
        {
            Offset (0x60),
            FLGS, 8,                            // 1: mains, 2: BAT0, 4: BAT1 is there
            WHAT, 8,                            // to be told: 1: mains, 2, 4: state, 8, 16: facts of a battery
            // State (1: discharging, 2: charging), rate in mW, what remains in mWh, mV, what it holds at most in mWh,
            // cycles, what it was designed for in mWh.
            ST0, 8, RT0, 16, RM0, 16, VL0, 16, FC0, 16, CY0, 16, DC0, 16,
            Offset (0x70),
            ST1, 8, RT1, 16, RM1, 16, VL1, 16, FC1, 16, CY1, 16, DC1, 16
        }

        Method (UNKN, 1) { If (Arg0 == 0xFFFF) { Return (0xFFFFFFFF) } Return (Arg0) }

        Device (AC0)
        {
            Name (_HID, "ACPI0003")
            Name (_PCL, Package () { \_SB })
            Method (_PSR) { Return (FLGS & 1) }
        }

        Device (BAT0)
        {
            Name (_HID, EisaId ("PNP0C0A"))
            Name (_UID, 0)
            Name (_PCL, Package () { \_SB })
            Method (_STA) { If (FLGS & 2) { Return (0x1F) } Return (0x0F) }
            Name (BIX, Package () { 0, 0, 0, 0, 1, 11520, 2500, 1000,
                0, 95000, 0xFFFFFFFF, 0xFFFFFFFF, 1000, 500, 10, 10,
                "CELL-57A  ", "TBCELL00427", "LiP", "Acme Cells" })
            Name (BST, Package () { 0, 0, 0, 0 })
            Method (_BIX)
            {
                BIX[2] = UNKN (DC0)
                BIX[3] = UNKN (FC0)
                BIX[8] = UNKN (CY0)
                Return (BIX)
            }
            Method (_BST)
            {
                BST[0] = ST0
                BST[1] = UNKN (RT0)
                BST[2] = UNKN (RM0)
                BST[3] = UNKN (VL0)
                Return (BST)
            }
        }

        Device (BAT1)
        {
            Name (_HID, EisaId ("PNP0C0A"))
            Name (_UID, 1)
            Name (_PCL, Package () { \_SB })
            Method (_STA) { If (FLGS & 4) { Return (0x1F) } Return (0x0F) }
            Name (BIX, Package () { 0, 0, 0, 0, 1, 11100, 1200, 500,
                0, 95000, 0xFFFFFFFF, 0xFFFFFFFF, 1000, 500, 10, 10,
                "CELL-22X", " TBCELL3121", "LION", "Zeta Power" })
            Name (BST, Package () { 0, 0, 0, 0 })
            Method (_BIX)
            {
                BIX[2] = UNKN (DC1)
                BIX[3] = UNKN (FC1)
                BIX[8] = UNKN (CY1)
                Return (BIX)
            }
            Method (_BST)
            {
                BST[0] = ST1
                BST[1] = UNKN (RT1)
                BST[2] = UNKN (RM1)
                BST[3] = UNKN (VL1)
                Return (BST)
            }
        }

        Device (POKE)
        {
            Name (_HID, "TVK00001")
            Method (_STA)
            {
                Local0 = WHAT
                WHAT = 0
                If (Local0 & 1)  { Notify (AC0, 0x80) }
                If (Local0 & 8)  { Notify (BAT0, 0x81) }
                If (Local0 & 16) { Notify (BAT1, 0x81) }
                If (Local0 & 2)  { Notify (BAT0, 0x80) }
                If (Local0 & 4)  { Notify (BAT1, 0x80) }
                Return (0x0F)
            }
        }
    }
}
