# A CMS SignedData (DER) around real certificates: usage: make-real-chain-cms.py SIGNER.pem OUT [MORE.pem...].
# The signer identifier is the signer's issuer and serial number; the signature value is zeros.
import subprocess,sys
def tlv(t,b):
    n=len(b)
    if n<0x80: l=bytes([n])
    else:
        o=n.to_bytes((n.bit_length()+7)//8,'big'); l=bytes([0x80|len(o)])+o
    return bytes([t])+l+b
def der(pem): return subprocess.run(['openssl','x509','-in',pem,'-outform','DER'],capture_output=True).stdout
def walk(b):  # children of a constructed TLV
    i=0; out=[]
    t=b[0]; l=b[1]; i=2
    if l&0x80: k=l&0x7f; l=int.from_bytes(b[2:2+k],'big'); i=2+k
    body=b[i:i+l]; j=0
    while j<len(body):
        s=j; jl=body[j+1]; h=2
        if jl&0x80: k=jl&0x7f; jl=int.from_bytes(body[j+2:j+2+k],'big'); h=2+k
        out.append(body[s:j+h+jl]); j+=h+jl
    return out
leaf=der(sys.argv[1]); extra=b"".join(der(p) for p in sys.argv[3:]); tbs=walk(walk(leaf)[0])
serial,issuer=tbs[1],tbs[3]
oid_data=bytes.fromhex('06092a864886f70d010701'); oid_sd=bytes.fromhex('06092a864886f70d010702')
sha256=tlv(0x30,bytes.fromhex('0609608648016503040201')+b'\x05\x00')
rsa=tlv(0x30,bytes.fromhex('06092a864886f70d010101')+b'\x05\x00')
si=tlv(0x30,b'\x02\x01\x01'+tlv(0x30,issuer+serial)+sha256+rsa+tlv(0x04,b'\x00'*256))
sd=tlv(0x30,b'\x02\x01\x01'+tlv(0x31,sha256)+tlv(0x30,oid_data+tlv(0xa0,tlv(0x04,b'hello\n')))+tlv(0xa0,leaf+extra)+tlv(0x31,si))
open(sys.argv[2],'wb').write(tlv(0x30,oid_sd+tlv(0xa0,sd)))
